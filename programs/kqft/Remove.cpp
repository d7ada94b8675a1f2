// rm: deletes a project on the server.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>

#include "programs/ExitStatus.h"
#include "programs/Suggestion.h"
#include "programs/Terminal.h"
#include "programs/kqft/Commands.h"
#include "programs/kqft/Output.h"
#include "programs/kqft/Text.h"
#include "protocol/ResultCodes.h"
#include "transfer/ProjectClient.h"

namespace {

bool UserAgrees(const std::string& question) {
  std::cerr << question + " [y/N] " << std::flush;
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "y" || answer == "Y" || answer == "yes";
}

// A project whose files the server does not list may be in its list of projects.
// False once it was told that it is not.
bool IsListed(CProjectClient& client, COutput& output, const std::string& project) {
  std::vector<SProject> projects;
  const int result = client.ListProjects(projects);
  if (result != RESULT_OK) {
    FailQuestion(output, result);
    return false;
  }
  std::vector<std::string> names;
  names.reserve(projects.size());
  for (const SProject& listed : projects) names.push_back(listed.m_strName);
  if (std::find(names.begin(), names.end(), project) != names.end()) return true;
  const std::string near = Suggest(project, names);
  output.Error("the server knows no project of this name" +
                   (near.empty() ? "" : "; did you mean '" + Printable(near) + "'?"),
               0, project);
  return false;
}

}  // namespace

void AddRmOptions(CLI::App& command, SOptions& options) {
  command.add_flag("-y,--yes", options.m_bYes, "do not ask");
}

std::string WhyNoRm(const SOptions& options) {
  const bool canAsk = options.m_bYes || IsTerminal(EStream::kInput);
  return canAsk ? "" : "rm asks on a terminal only; use --yes elsewhere";
}

int RunRm(CProjectClient& client, COutput& output, const SOptions& options) {
  std::vector<SProjectFile> files;
  int result = client.ListFiles(options.m_strProject, files);
  if (result != RESULT_OK) return FailQuestion(output, result);
  const std::string shown = Printable(options.m_strProject);
  if (files.empty() && !IsListed(client, output, options.m_strProject)) return kExitFailed;
  if (!options.m_bYes && !UserAgrees("Delete project " + shown + " (" + FormatFiles(files.size()) +
                                     " listed) on " + options.m_place.Text() + "?")) {
    output.Notice("nothing deleted");
    return kExitFailed;
  }
  std::size_t left = 0;
  result = client.DeleteProject(options.m_strProject, left);
  if (result != RESULT_OK) return FailQuestion(output, result);
  if (left > 0) {
    output.Error("the server did not delete everything: " + FormatFiles(left) + " left", 0,
                 options.m_strProject);
    return kExitFailed;
  }
  output.Tell(files.empty() ? shown + ": the server listed no files of it; asked to delete it"
                            : shown + ": deleted, " + FormatFiles(files.size()));
  output.Json(CJsonObject("summary")
                  .Text("command", "rm")
                  .Name("project", options.m_strProject)
                  .Number("files_deleted", static_cast<std::int64_t>(files.size())));
  return kExitDone;
}
