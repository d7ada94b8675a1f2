// ls and files: what the server has.

#include <CLI/CLI.hpp>
#include <algorithm>

#include "programs/ExitStatus.h"
#include "programs/kqft/Commands.h"
#include "programs/kqft/Output.h"
#include "programs/kqft/Text.h"
#include "programs/kqft/Times.h"
#include "protocol/ResultCodes.h"
#include "transfer/ProjectClient.h"
#include "transfer/Sizes.h"

namespace {

const std::string kGap = "  ";
constexpr std::int64_t kNanoseconds = 1000000000;

const char* const kNoFiles = "the server lists no files of this project";
const char* const kNothingBelow = "the project has nothing of this name";

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

int ListProjects(CProjectClient& client, COutput& output) {
  std::vector<SProject> projects;
  const int result = client.ListProjects(projects);
  if (result != RESULT_OK) return FailQuestion(output, result);
  std::vector<std::vector<std::string>> rows = {{"NAME", "SIZE", "CREATED"}};
  std::vector<CJsonObject> objects;
  int status = kExitDone;
  for (const SProject& project : projects) {
    const bool possible = project.m_llSize >= 0;
    std::int64_t created = 0;
    const bool isTime = ParseServerTime(project.m_strCreated, created);
    rows.push_back({Printable(project.m_strName), possible ? FormatSize(project.m_llSize) : "?",
                    isTime ? FormatTime(created) : Printable(project.m_strCreated)});
    CJsonObject object;
    object.Name("name", project.m_strName);
    if (possible) object.Number("size", project.m_llSize);
    if (isTime) object.Text("created", FormatTimeForPrograms(created));
    objects.push_back(object);
    if (possible) continue;
    output.Error(WhyNoSize(project.m_llSize), 0, project.m_strName);
    status = kExitFailed;
  }
  if (!output.IsJson() && !projects.empty()) SayTable(output, rows, 1);
  if (projects.empty()) output.Notice("the server has no projects");
  output.Json(CJsonObject("summary").Text("command", "ls").List("projects", objects));
  return status;
}

std::int64_t SecondsOf(const SProjectFile& file) {
  return file.m_llTime / kNanoseconds - (file.m_llTime % kNanoseconds < 0 ? 1 : 0);
}

CJsonObject FileObject(const SProjectFile& file) {
  CJsonObject object;
  object.Name("name", file.m_strName);
  if (file.m_llSize >= 0) object.Number("size", file.m_llSize);
  if (file.m_llTime != 0) {
    object.Number("time_ns", file.m_llTime).Text("time", FormatTimeForPrograms(SecondsOf(file)));
  }
  if (!file.m_strDigest.empty()) object.Text("digest", file.m_strDigest);
  return object;
}

std::vector<std::string> FileRow(const SProjectFile& file, bool digests) {
  const std::string unknown = "-";
  std::vector<std::string> row = {file.m_llSize >= 0 ? FormatSize(file.m_llSize) : unknown,
                                  file.m_llTime != 0 ? FormatTime(SecondsOf(file)) : unknown};
  if (digests) row.push_back(file.m_strDigest.empty() ? unknown : file.m_strDigest);
  row.push_back(Printable(file.m_strName));
  return row;
}

// @param below a directory of the project, or a file; "" for all of it
int ListFiles(CProjectClient& client, COutput& output, const SOptions& options,
              const std::string& project, const std::string& below) {
  SFileList list;
  const int result = client.ListAllFiles(project, list);
  if (result != RESULT_OK) return FailQuestion(output, result);
  std::vector<std::vector<std::string>> rows = {{"SIZE", "TIME", "NAME"}};
  if (options.m_bLong) rows.front().insert(rows.front().begin() + 2, "DIGEST");
  std::vector<CJsonObject> objects;
  for (const SProjectFile& file : list.m_vecFiles) {
    const bool isBelow = below.empty() || file.m_strName == below ||
                         file.m_strName.compare(0, below.size() + 1, below + "/") == 0;
    if (!isBelow) continue;
    rows.push_back(FileRow(file, options.m_bLong));
    objects.push_back(FileObject(file));
  }
  if (objects.empty()) {
    output.Error(list.m_vecFiles.empty() ? kNoFiles : kNothingBelow, 0,
                 project + (below.empty() ? "" : "/" + below));
    return kExitFailed;
  }
  if (!output.IsJson()) SayTable(output, rows, 0);
  if (!list.m_strMayHide.empty()) output.Notice(Printable(project) + ": " + list.m_strMayHide);
  output.Json(CJsonObject("summary")
                  .Text("command", options.m_strCommand)
                  .Name("project", project)
                  .List("files", objects));
  return list.m_bComplete ? kExitDone : kExitFailed;
}

// "PROJECT/DIRECTORY" in two; the second may be "".
std::pair<std::string, std::string> Split(const std::string& path) {
  const std::size_t slash = std::min(path.find_first_of("/\\"), path.size());
  std::string below = path.substr(std::min(slash + 1, path.size()));
  std::replace(below.begin(), below.end(), '\\', '/');
  while (!below.empty() && below.back() == '/') below.pop_back();
  return {path.substr(0, slash), below};
}

void AddLongOption(CLI::App& command, SOptions& options) {
  command.add_flag("-l,--long", options.m_bLong, "digests of files, too");
}

}  // namespace

void AddLsOptions(CLI::App& command, SOptions& options) {
  command.add_option("PROJECT[/DIR]", options.m_strBelow, "list the files of it, or below DIR");
  AddLongOption(command, options);
}

std::string WhyNoLs(const SOptions& options) {
  if (options.m_strBelow.empty()) return "";
  const std::string why = CProjectClient::WhyNoProject(Split(options.m_strBelow).first);
  return why.empty() ? "" : "project: " + why;
}

int RunLs(CProjectClient& client, COutput& output, const SOptions& options) {
  if (options.m_strBelow.empty()) return ListProjects(client, output);
  const auto [project, below] = Split(options.m_strBelow);
  return ListFiles(client, output, options, project, below);
}

void AddFilesOptions(CLI::App& command, SOptions& options) {
  AddLongOption(command, options);
}

int RunFiles(CProjectClient& client, COutput& output, const SOptions& options) {
  return ListFiles(client, output, options, options.m_strProject, "");
}
