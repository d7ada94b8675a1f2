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
#include "platform/TimeConvert.h"
#include "platform/UserDirectories.h"
#include "programs/Directories.h"
#include "programs/ExitStatus.h"
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

// "" when there is none: then it goes on without logs, and says so.
std::string ChooseLogDirectory(const SServerOptions& options) {
  const std::string& named = options.m_strLogDirectory;
  if (!named.empty()) {
    const std::string why = WhyUnusable(named);
    if (why.empty()) return named;
    std::cerr << "kqft-server: no log files: log directory " + named + ": " + why + "\n";
    return "";
  }
  const std::string state = UserStateDirectory();
  std::string found = FirstUsableDirectory({EnvironmentWord("LOGS_DIRECTORY"), SystemLogDirectory(),
                                            state.empty() ? "" : state + "/kqft"});
  if (found.empty()) {
    std::cerr << "kqft-server: no log files: no directory for them; name one with --log-dir\n";
  }
  return found;
}

// Before the first thread of the process, which would stay free.
std::string Confine(const SServerOptions& options, const std::string& logDirectory) {
  SConfinement confinement;
  confinement.m_strDataDirectory = DirectoryForLibrary(options.m_strDirectory);
  if (!logDirectory.empty()) confinement.m_strLogDirectory = DirectoryForLibrary(logDirectory);
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
  const bool logs = !logDirectory.empty();
  server->SetLog(logs ? DirectoryForLibrary(logDirectory) : "", logs);
  CTimeConvert::ConvertCurTimeToString();  // reads the time zone
  if (logs) KeepServerLogsFresh(logDirectory, options.m_nLogDays, !options.m_bNoConfine);
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
                   (options.m_bNoConfine ? " (not confined)\n" : " (confined)\n");
  NotifyServiceManager("READY=1");
  WaitForTermination();
  NotifyServiceManager("STOPPING=1");
  if (!EndServer(std::move(server), kStopBoundMs)) std::_Exit(kExitDone);
  return kExitDone;
}

}  // namespace

int main(int argc, char** argv) {
  SServerOptions options;
  int status = kExitDone;
  if (!ParseServerOptions(argc, argv, options, status)) return status;
  if (options.m_verify.m_bVerify) return VerifyProjects(options.m_strDirectory, options.m_verify);
  HoldTermination();

  if (const std::string why = WhyUnusable(options.m_strDirectory); !why.empty()) {
    return Fail("project directory " + options.m_strDirectory + ": " + why);
  }
  return Serve(options, ChooseLogDirectory(options));
}
