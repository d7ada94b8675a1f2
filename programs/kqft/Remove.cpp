// rm: deletes a project on the server.

#include <iostream>

#include "programs/ExitStatus.h"
#include "programs/Terminal.h"
#include "programs/kqft/Commands.h"
#include "programs/kqft/Output.h"
#include "programs/kqft/Text.h"
#include "protocol/ResultCodes.h"

namespace {

bool UserAgrees(const std::string& question) {
  std::cerr << question + " [y/N] " << std::flush;
  std::string answer;
  std::getline(std::cin, answer);
  return answer == "y" || answer == "Y" || answer == "yes";
}

}  // namespace

// The server says yes to everything, so it is asked afterwards what is left.
int CommandRm(CSession& session, COutput& output, const SOptions& options) {
  std::vector<Channel_Key_Value> files;
  int result = session.AskFiles(options.m_strProject, files);
  if (result != RESULT_OK) return FailQuestion(output, result);
  const std::string shown = Printable(options.m_strProject);
  if (!options.m_bYes && !UserAgrees("Delete project " + shown + " (" + FormatFiles(files.size()) +
                                     " listed) on " + options.m_place.Text() + "?")) {
    output.Notice("nothing deleted");
    return kExitFailed;
  }
  result = session.Delete(options.m_strProject);
  std::vector<Channel_Key_Value> left;
  if (result == RESULT_OK) result = session.AskFiles(options.m_strProject, left);
  if (result != RESULT_OK) return FailQuestion(output, result);
  if (!left.empty()) {
    output.Error("the server did not delete everything: " + FormatFiles(left.size()) + " left", 0,
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
