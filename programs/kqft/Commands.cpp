// The commands of kqft: their table, and those that only ask what the server
// has. Each of the others lies in a file of its own.

#include "programs/kqft/Commands.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <stdexcept>

#include "platform/TimeConvert.h"
#include "programs/ExitStatus.h"
#include "programs/kqft/Output.h"
#include "programs/kqft/Text.h"
#include "protocol/ResultCodes.h"
#include "transfer/ProjectClient.h"
#include "transfer/Sizes.h"

namespace {

void AddNothing(CLI::App&, SOptions&) {}

std::string NothingWrong(const SOptions&) {
  return "";
}

const std::string kGap = "  ";
constexpr std::int64_t kNanoseconds = 1000000000;

const char* const kNoFiles = "the server lists no files of this project";

// Columns of a terminal: continuation bytes of UTF-8 take none.
std::size_t Columns(const std::string& text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;
  }));
}

void SayTable(COutput& output, const std::vector<std::vector<std::string>>& rows,
              std::size_t sizes) {
  std::vector<std::size_t> widths(rows.front().size());
  for (const auto& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], Columns(row[i]));
  }
  for (const auto& row : rows) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      const std::string padding(widths[i] - Columns(row[i]), ' ');
      const bool isNumber = i == sizes;
      const bool isLast = i + 1 == row.size();
      line += isNumber ? padding + row[i] : row[i] + (isLast ? "" : padding);
      if (!isLast) line += kGap;
    }
    output.Say(line);
  }
}

int RunDir(CProjectClient& client, COutput& output, const SOptions&) {
  std::string directory;
  const int result = client.GetDirectory(directory);
  if (result != RESULT_OK) return FailQuestion(output, result);
  if (!output.IsJson()) output.Say(Printable(directory));
  output.Json(CJsonObject("summary").Text("command", "dir").Name("directory", directory));
  return kExitDone;
}

int RunLs(CProjectClient& client, COutput& output, const SOptions&) {
  std::vector<SProject> projects;
  const int result = client.ListProjects(projects);
  if (result != RESULT_OK) return FailQuestion(output, result);
  std::vector<std::vector<std::string>> rows = {{"NAME", "SIZE", "CREATED"}};
  std::vector<CJsonObject> objects;
  int status = kExitDone;
  for (const SProject& project : projects) {
    const bool possible = project.m_llSize >= 0;
    rows.push_back({Printable(project.m_strName), possible ? FormatSize(project.m_llSize) : "?",
                    Printable(project.m_strCreated)});
    CJsonObject object;
    object.Name("name", project.m_strName);
    if (possible) object.Number("size", project.m_llSize);
    objects.push_back(object.Text("created", project.m_strCreated));
    if (possible) continue;
    output.Error(WhyNoSize(project.m_llSize), 0, project.m_strName);
    status = kExitFailed;
  }
  if (!output.IsJson() && !projects.empty()) SayTable(output, rows, 1);
  if (projects.empty()) output.Notice("the server has no projects");
  output.Json(CJsonObject("summary").Text("command", "ls").List("projects", objects));
  return status;
}

void AddFilesOptions(CLI::App& command, SOptions& options) {
  command.add_flag("-l,--long", options.m_bLong,
                   "sizes, times and digests too, and what lies deep down");
}

CJsonObject FileObject(const SProjectFile& file) {
  CJsonObject object;
  object.Name("name", file.m_strName);
  if (file.m_llSize >= 0) object.Number("size", file.m_llSize);
  if (file.m_llTime != 0) object.Number("time_ns", file.m_llTime);
  if (!file.m_strDigest.empty()) object.Text("digest", file.m_strDigest);
  return object;
}

std::vector<std::string> FileRow(const SProjectFile& file) {
  const std::string unknown = "-";
  const std::int64_t seconds = file.m_llTime / kNanoseconds - (file.m_llTime < 0 ? 1 : 0);
  return {file.m_llSize >= 0 ? std::to_string(file.m_llSize) : unknown,
          file.m_llTime != 0 ? CTimeConvert::ConvertTimeToString(seconds) : unknown,
          file.m_strDigest.empty() ? unknown : file.m_strDigest, Printable(file.m_strName)};
}

int RunFilesLong(CProjectClient& client, COutput& output, const SOptions& options) {
  SFileList list;
  const int result = client.ListAllFiles(options.m_strProject, list);
  if (result != RESULT_OK) return FailQuestion(output, result);
  if (list.m_vecFiles.empty()) {
    output.Error(kNoFiles, 0, options.m_strProject);
    return kExitFailed;
  }
  std::vector<std::vector<std::string>> rows = {{"SIZE", "TIME", "DIGEST", "NAME"}};
  std::vector<CJsonObject> objects;
  for (const SProjectFile& file : list.m_vecFiles) {
    rows.push_back(FileRow(file));
    objects.push_back(FileObject(file));
  }
  if (!output.IsJson()) SayTable(output, rows, 0);
  if (!list.m_strMayHide.empty()) {
    output.Notice(Printable(options.m_strProject) + ": " + list.m_strMayHide);
  }
  output.Json(CJsonObject("summary")
                  .Text("command", "files")
                  .Name("project", options.m_strProject)
                  .List("files", objects));
  return list.m_bComplete ? kExitDone : kExitFailed;
}

int RunFiles(CProjectClient& client, COutput& output, const SOptions& options) {
  if (options.m_bLong) return RunFilesLong(client, output, options);
  std::vector<SProjectFile> files;
  const int result = client.ListFiles(options.m_strProject, files);
  if (result != RESULT_OK) return FailQuestion(output, result);
  if (files.empty()) {
    output.Error(kNoFiles, 0, options.m_strProject);
    return kExitFailed;
  }
  std::vector<CJsonObject> objects;
  for (const SProjectFile& file : files) {
    if (!output.IsJson()) output.Say(Printable(file.m_strName));
    objects.push_back(CJsonObject().Name("name", file.m_strName));
  }
  output.Json(CJsonObject("summary")
                  .Text("command", "files")
                  .Name("project", options.m_strProject)
                  .List("files", objects));
  return kExitDone;
}

}  // namespace

const std::vector<SCommand>& Commands() {
  static const std::vector<SCommand> commands = {
      {"dir", "show the server's project directory", false, AddNothing, NothingWrong, RunDir},
      {"ls", "list the projects", false, AddNothing, NothingWrong, RunLs},
      {"files", "list the files of a project", true, AddFilesOptions, NothingWrong, RunFiles},
      {"put", "send directories or files", false, AddPutOptions, WhyNoPut, RunPut},
      {"get", "fetch a project, or some of its files", true, AddGetOptions, WhyNoGet, RunGet},
      {"verify", "compare a project's bytes with its inventory", true, AddVerifyOptions,
       WhyNoVerify, RunVerify},
      {"rm", "delete a project on the server", true, AddRmOptions, WhyNoRm, RunRm},
  };
  return commands;
}

const SCommand& FindCommand(const std::string& name) {
  const auto found = std::find_if(Commands().begin(), Commands().end(),
                                  [&](const SCommand& command) { return name == command.m_pName; });
  if (found == Commands().end()) throw std::logic_error(name + ": no such command");
  return *found;
}

int FailQuestion(COutput& output, int result) {
  output.Error(DescribeResult(result), result);
  return kExitFailed;
}
