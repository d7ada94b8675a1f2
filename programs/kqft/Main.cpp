// kqft: the workstation's command line.

#include <exception>
#include <filesystem>
#include <iostream>
#include <string>

#include "platform/PathBytes.h"
#include "platform/UserDirectories.h"
#include "programs/Directories.h"
#include "programs/ExitStatus.h"
#include "programs/ProgramStart.h"
#include "programs/Termination.h"
#include "programs/kqft/CommandLine.h"
#include "programs/kqft/Commands.h"
#include "programs/kqft/ConsoleObserver.h"
#include "programs/kqft/Interrupt.h"
#include "programs/kqft/Output.h"
#include "programs/kqft/Text.h"
#include "protocol/ResultCodes.h"
#include "transfer/ProjectClient.h"

namespace {

constexpr std::size_t kLongestPurpose = 100;

// Without a directory for logs it goes on, and says so.
void ChooseLogDirectory(SOptions& options, COutput& output) {
  std::string& directory = options.m_place.m_strLogDirectory;
  const std::string state = UserStateDirectory();
  if (directory.empty() && !state.empty()) directory = state + "/kqft";
  const std::string usable = FirstUsableDirectory({directory});
  options.m_place.m_bLogs = !usable.empty();
  if (usable.empty()) {
    output.Notice("no log files: " +
                  (directory.empty() ? "no home directory to keep them in"
                                     : "cannot write into " + Printable(directory)) +
                  "; --log-dir names another directory");
    return;
  }
  directory = DirectoryForLibrary(usable);
  RemoveOldLogs(directory, ELogs::kClient, options.m_nLogDays);
}

// What others who wait for this call are told.
std::string Purpose(const SOptions& options) {
  std::string text = "kqft " + options.m_strCommand;
  if (!options.m_strProject.empty()) return text + " " + options.m_strProject;
  for (const std::string& path : options.m_vecPaths) text += " " + path;
  return text.size() <= kLongestPurpose ? text : text.substr(0, kLongestPurpose) + "...";
}

// The one that a server is chosen for, where there are several.
std::string ProjectMeant(const SOptions& options) {
  if (!options.m_strProject.empty()) return options.m_strProject;
  if (options.m_strCommand != "put" || options.m_vecPaths.empty()) {
    return options.m_strBelow.substr(0, options.m_strBelow.find('/'));
  }
  std::error_code error;
  return BytesOf(std::filesystem::canonical(PathOf(options.m_vecPaths.front()), error).filename());
}

int ConnectAndRun(SOptions& options) {
  COutput output(options.m_bJson, options.m_bQuiet);
  const SCommand& command = FindCommand(options.m_strCommand);
  if (const std::string why = command.m_pWhyNot(options); !why.empty()) {
    output.Error(why);
    return kExitUsage;
  }
  ChooseLogDirectory(options, output);
  options.m_place.m_strPurpose = Purpose(options);
  options.m_place.m_strProject = ProjectMeant(options);
  if (options.m_bWatch) return RunWatch(output, options);
  CConsoleObserver observer(output, options.m_strCommand);
  const CShowScope show([&observer] { observer.ShowNow(); });
  CProjectClient client(options.m_place, &observer);
  if (options.m_strCommand == "put") client.LookAhead(MakePutRequest(options));
  const int result = client.Connect(options.m_nRetries, options.m_nRetrySeconds);
  if (result == kServerTaken) {
    output.Error(Printable(client.TakenBy()) + " is busy with " + options.m_place.Text(), result);
    return kExitFailed;
  }
  if (result != RESULT_OK) {
    output.Error(
        "cannot connect to " + options.m_place.Text() + ": " + Printable(client.WhyNotConnected()),
        result);
    return kExitNoConnection;
  }
  return command.m_pRun(client, output, options);
}

int Run(int argc, char** argv) {
  HoldTermination();
  HoldMoreRequests();
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

}  // namespace

int main(int argc, char** argv) {
  return StartProgram(argc, argv, &Run);
}
