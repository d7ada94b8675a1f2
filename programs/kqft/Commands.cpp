// The commands of kqft.

#include "programs/kqft/Commands.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <stdexcept>

#include "programs/ExitStatus.h"
#include "programs/kqft/Output.h"
#include "transfer/ProjectClient.h"

namespace {

void AddNothing(CLI::App&, SOptions&) {}

std::string NothingWrong(const SOptions&) {
  return "";
}

}  // namespace

const std::vector<SCommand>& Commands() {
  static const std::vector<SCommand> commands = {
      {"dir", "show the server's project directory", false, AddNothing, NothingWrong, RunDir},
      {"ls", "list the projects", false, AddNothing, NothingWrong, RunLs},
      {"files", "list the files of a project", true, AddNothing, NothingWrong, RunFiles},
      {"put", "send directories or files", false, AddPutOptions, WhyNoPut, RunPut},
      {"get", "fetch a project, or some of its files", true, AddGetOptions, WhyNoGet, RunGet},
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
