// kqft-server: the library's server as a program and a system service.
//
// The main thread sets everything up, then only waits for a termination
// request. What happens to the links is printed and logged by the library.

#include <cstdlib>
#include <iostream>
#include <memory>
#include <string>
#include <utility>

#include "net/NetWorkManageEx.h"
#include "platform/Confinement.h"
#include "platform/UserDirectories.h"
#include "programs/Directories.h"
#include "programs/ExitStatus.h"
#include "programs/ProgramStart.h"
#include "programs/ServiceNotify.h"
#include "programs/Termination.h"
#include "programs/kqft-server/ServerOptions.h"
#include "server/EndServer.h"
#include "server/KQFileTransServiceServer.h"

namespace {

// A session that has stored data lets the server's Stop wait 5 s. Everything
// received is in its file by then, so the process may end before.
constexpr int kStopBoundMs = 1500;

/// The library's server, told where and to whom to listen.
class CServer : public CKQFileTransServiceServer {
 public:
  void ListenOn(const std::string& address) { m_pPrimaryNetWork->SetLocalAddress(address); }
  void Admit(const std::vector<CAddressRange>& peers) { m_pPrimaryNetWork->SetAllowedPeers(peers); }
  int ListenPort() const { return m_pPrimaryNetWork->GetListenPort(); }
};

int Fail(const std::string& message) {
  std::cerr << "kqft-server: " + message + "\n";
  return kExitFailed;
}

std::string ChooseLogDirectory(const SServerOptions& options) {
  if (!options.m_strLogDirectory.empty()) return options.m_strLogDirectory;
  const std::string state = UserStateDirectory();
  return FirstUsableDirectory({EnvironmentWord("LOGS_DIRECTORY"), SystemLogDirectory(),
                               state.empty() ? "" : state + "/kqft"});
}

// Before the first thread of the process, which would stay free.
std::string Confine(const SServerOptions& options, const std::string& logDirectory) {
  SConfinement confinement;
  confinement.m_strDataDirectory = DirectoryForLibrary(options.m_strDirectory);
  confinement.m_strLogDirectory = DirectoryForLibrary(logDirectory);
  confinement.m_bRemoveDirectories = !options.m_bNoDelete;
  confinement.m_nListenPort = options.m_nPort;
  confinement.m_bAbstractSockets = EnvironmentWord("NOTIFY_SOCKET").starts_with('@');
  return ConfineProcess(confinement);
}

int Serve(const SServerOptions& options, const std::string& logDirectory) {
  auto server = std::make_unique<CServer>();
  server->SetPrjDir(DirectoryForLibrary(options.m_strDirectory));
  server->SetPrjSuffix(options.m_strSuffix);
  server->SetDurable(options.m_bDurable);
  server->SetDeleting(!options.m_bNoDelete);
  server->SetLog(DirectoryForLibrary(logDirectory), true);  // also reads the time zone
  server->ListenOn(options.m_strListenAddress);
  server->Admit(options.m_vecAllowed);
  if (!options.m_bNoConfine) {
    const std::string why = Confine(options, logDirectory);
    if (!why.empty()) {
      return Fail("cannot confine itself to its directories: " + why +
                  "; --no-confine starts it unconfined");
    }
  }
  const std::string place = options.m_strListenAddress + ":";
  if (!server->Init(options.m_nPort)) {
    return Fail("cannot listen on " + place + std::to_string(options.m_nPort) +
                ": the port is in use, or the address or port is not to be had");
  }
  std::cerr << "listening on " + place + std::to_string(server->ListenPort()) +
                   (options.m_bNoConfine ? " (not confined)\n"
                                         : std::string(" (") + ConfinementWord() + ")\n");
  NotifyServiceManager("READY=1");
  WaitForTermination();
  NotifyServiceManager("STOPPING=1");
  if (!EndServer(std::move(server), kStopBoundMs)) {
    LeaveService();
    std::_Exit(kExitDone);
  }
  return kExitDone;
}

int Run(int argc, char** argv) {
  SServerOptions options;
  int status = kExitDone;
  if (!ParseServerOptions(argc, argv, options, status)) return status;
  if (options.m_verify.m_bVerify) return VerifyProjects(options.m_strDirectory, options.m_verify);
  HoldTermination();

  if (const std::string why = WhyUnusable(options.m_strDirectory); !why.empty()) {
    return Fail("project directory " + options.m_strDirectory + ": " + why);
  }
  const std::string logDirectory = ChooseLogDirectory(options);
  if (logDirectory.empty()) return Fail("no directory for logs: name one with --log-dir");
  if (const std::string why = WhyUnusable(logDirectory); !why.empty()) {
    return Fail("log directory " + logDirectory + ": " + why);
  }
  return Serve(options, logDirectory);
}

}  // namespace

int main(int argc, char** argv) {
  return StartServiceProgram(argc, argv, &Run);
}
