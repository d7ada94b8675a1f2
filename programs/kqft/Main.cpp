// kqft: the workstation's command line.

#include <exception>
#include <iostream>
#include <string>

#include "programs/Directories.h"
#include "programs/ExitStatus.h"
#include "programs/Terminal.h"
#include "programs/Termination.h"
#include "programs/kqft/Commands.h"
#include "programs/kqft/Interrupt.h"
#include "programs/kqft/Options.h"
#include "programs/kqft/Output.h"
#include "transfer/Session.h"
#include "programs/kqft/Text.h"
#include "protocol/ResultCodes.h"

namespace {

// What can be known to be wrong before the server is asked; "" when nothing.
std::string WhyNotBegin(const SOptions& options) {
  if (options.m_strCommand == "put") return WhyNoPut(options);
  if (options.m_strCommand == "get") return WhyNoGet(options);
  if (options.m_strCommand == "rm" && !options.m_bYes && !IsTerminal(EStream::kInput)) {
    return "rm asks on a terminal only; use --yes elsewhere";
  }
  return "";
}

// "" when there is one to log into.
std::string ChooseLogDirectory(SOptions& options) {
  std::string& directory = options.m_place.m_strLogDirectory;
  const std::string state = UserStateDirectory();
  const bool isOurs = directory.empty();
  directory = FirstUsableDirectory({isOurs && !state.empty() ? state + "/kqft" : directory});
  if (directory.empty()) return "cannot write log files; name a directory with --log-dir";
  directory = DirectoryForLibrary(directory);
  return "";
}

int Run(CSession& session, COutput& output, const SOptions& options) {
  if (options.m_strCommand == "dir") return CommandDir(session, output);
  if (options.m_strCommand == "ls") return CommandLs(session, output);
  if (options.m_strCommand == "files") return CommandFiles(session, output, options);
  if (options.m_strCommand == "put") return CommandPut(session, output, options);
  if (options.m_strCommand == "get") return CommandGet(session, output, options);
  return CommandRm(session, output, options);
}

int ConnectAndRun(SOptions& options) {
  COutput output(options.m_bJson, options.m_bQuiet);
  if (const std::string why = WhyNotBegin(options); !why.empty()) {
    output.Error(why);
    return kExitUsage;
  }
  if (const std::string why = ChooseLogDirectory(options); !why.empty()) {
    output.Error(why);
    return kExitFailed;
  }
  CSession session(options.m_place, output);
  if (const int result = session.Open(); result != RESULT_OK) {
    output.Error("cannot connect to " + options.m_place.Text() + ": " + DescribeResult(result),
                 result);
    return kExitNoConnection;
  }
  return Run(session, output, options);
}

}  // namespace

int main(int argc, char** argv) {
  HoldTermination();
  StartInterrupts();
  try {
    SOptions options;
    int status = kExitDone;
    return ParseOptions(argc, argv, options, status) ? ConnectAndRun(options) : status;
  } catch (const std::exception& error) {
    std::cerr << std::string("kqft: ") + error.what() + "\n";
    return kExitFailed;
  }
}
