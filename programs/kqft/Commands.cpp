// The commands of kqft: their table. Most of them lie in files of their own.

#include "programs/kqft/Commands.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <stdexcept>

#include "programs/ExitStatus.h"
#include "programs/kqft/Output.h"
#include "programs/kqft/Text.h"
#include "protocol/ResultCodes.h"
#include "transfer/ProjectClient.h"

namespace {

void AddNothing(CLI::App&, SOptions&) {}

std::string NothingWrong(const SOptions&) {
  return "";
}

int RunDir(CProjectClient& client, COutput& output, const SOptions&) {
  std::string directory;
  const int result = client.GetDirectory(directory);
  if (result != RESULT_OK) return FailQuestion(output, result);
  if (!output.IsJson()) output.Say(Printable(directory));
  output.Json(CJsonObject("summary").Text("command", "dir").Name("directory", directory));
  return kExitDone;
}

}  // namespace

const std::vector<SCommand>& Commands() {
  static const std::vector<SCommand> commands = {
      {"dir", "show the server's project directory", false, AddNothing, NothingWrong, RunDir},
      {"ls", "list the projects, or files of one", false, AddLsOptions, WhyNoLs, RunLs},
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
