// dir, ls, files: what the server has.

#include <algorithm>

#include "programs/ExitStatus.h"
#include "programs/kqft/Commands.h"
#include "programs/kqft/Output.h"
#include "programs/kqft/Text.h"
#include "protocol/ResultCodes.h"

namespace {

const std::string kGap = "  ";

// Columns of a terminal: continuation bytes of UTF-8 take none.
std::size_t Columns(const std::string& text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;
  }));
}

void SayTable(COutput& output, const std::vector<std::vector<std::string>>& rows) {
  std::vector<std::size_t> widths(rows.front().size());
  for (const auto& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], Columns(row[i]));
  }
  for (const auto& row : rows) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      const std::string padding(widths[i] - Columns(row[i]), ' ');
      const bool isNumber = i == 1;
      const bool isLast = i + 1 == row.size();
      line += isNumber ? padding + row[i] : row[i] + (isLast ? "" : padding);
      if (!isLast) line += kGap;
    }
    output.Say(line);
  }
}

}  // namespace

int CommandDir(CSession& session, COutput& output) {
  std::string directory;
  const int result = session.AskDirectory(directory);
  if (result != RESULT_OK) return FailQuestion(output, result);
  if (!output.IsJson()) output.Say(Printable(directory));
  output.Json(CJsonObject("summary").Text("command", "dir").Name("directory", directory));
  return kExitDone;
}

int CommandLs(CSession& session, COutput& output) {
  std::vector<Channel_Key_Value> projects;
  const int result = session.AskProjects(projects);
  if (result != RESULT_OK) return FailQuestion(output, result);
  std::vector<std::vector<std::string>> rows = {{"NAME", "SIZE", "CREATED"}};
  std::vector<CJsonObject> objects;
  int status = kExitDone;
  for (const Channel_Key_Value& project : projects) {
    const bool possible = project.m_llSize >= 0;
    rows.push_back({Printable(project.m_strPath), possible ? FormatSize(project.m_llSize) : "?",
                    Printable(project.m_strName)});
    CJsonObject object;
    object.Name("name", project.m_strPath);
    if (possible) object.Number("size", project.m_llSize);
    objects.push_back(object.Text("created", project.m_strName));
    if (possible) continue;
    output.Error(WhyNoSize(project.m_llSize), 0, project.m_strPath);
    status = kExitFailed;
  }
  if (!output.IsJson() && !projects.empty()) SayTable(output, rows);
  if (projects.empty()) output.Notice("the server has no projects");
  output.Json(CJsonObject("summary").Text("command", "ls").List("projects", objects));
  return status;
}

int CommandFiles(CSession& session, COutput& output, const SOptions& options) {
  std::string directory;
  std::vector<Channel_Key_Value> files;
  int result = session.AskDirectory(directory);
  if (result == RESULT_OK) result = session.AskFiles(options.m_strProject, files);
  if (result != RESULT_OK) return FailQuestion(output, result);
  if (files.empty()) {
    output.Error("the server lists no files of this project", 0, options.m_strProject);
    return kExitFailed;
  }
  std::vector<CJsonObject> objects;
  for (const Channel_Key_Value& file : files) {
    std::string name = NameBelowProject(file, directory + options.m_strProject);
    std::replace(name.begin(), name.end(), '\\', '/');
    if (!output.IsJson()) output.Say(Printable(name));
    objects.push_back(CJsonObject().Name("name", name));
  }
  output.Json(CJsonObject("summary")
                  .Text("command", "files")
                  .Name("project", options.m_strProject)
                  .List("files", objects));
  return kExitDone;
}

int FailQuestion(COutput& output, int result) {
  output.Error(DescribeResult(result), result);
  return kExitFailed;
}

// The server's short names leave out directories deep down; its full names
// do not.
std::string NameBelowProject(const Channel_Key_Value& file, const std::string& projectPath) {
  const std::size_t size = projectPath.size();
  const std::string& full = file.m_strName;
  if (full.size() > size + 1 && full.compare(0, size, projectPath) == 0 &&
      (full[size] == '\\' || full[size] == '/')) {
    return full.substr(size + 1);
  }
  const std::size_t separator = file.m_strPath.find_first_of("\\/");
  return separator == std::string::npos ? file.m_strPath : file.m_strPath.substr(separator + 1);
}
