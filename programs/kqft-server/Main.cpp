// kqft-server: the library's server as a program and a system service.
//
// The main thread sets everything up, then only waits for requests, and tells
// the service manager every few seconds what is going on. What happens to the
// links is printed and logged by the library, what clients do by the access log.

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <utility>

#include "platform/Confinement.h"
#include "platform/PathBytes.h"
#include "platform/TimeConvert.h"
#include "platform/UserDirectories.h"
#include "programs/Directories.h"
#include "programs/DirectoryLock.h"
#include "programs/ExitStatus.h"
#include "programs/MountPlace.h"
#include "programs/ProgramStart.h"
#include "programs/ServiceNotify.h"
#include "programs/ServiceRequests.h"
#include "programs/Termination.h"
#include "programs/kqft-server/AccessLog.h"
#include "programs/kqft-server/DataServer.h"
#include "programs/kqft-server/DirectoryProbe.h"
#include "programs/kqft-server/ServerOptions.h"
#include "programs/kqft-server/StatusFiles.h"
#include "server/EndServer.h"

namespace {

// A session that has stored data lets the server's Stop wait 5 s. Everything
// received is in its file by then, so the process may end before.
constexpr int kStopBoundMs = 1300;
constexpr int kLastLinesMs = 200;
constexpr int kStatusMs = 5000;

const char kOutputStream[] = "-";

int Fail(const std::string& message, int status = kExitFailed) {
  std::cerr << "kqft-server: " + message + "\n";
  return status;
}

// The journal of a service keeps what goes to the error stream.
int FailWithoutDirectory(const SServerOptions& options, const CDirectoryProbe& probe) {
  return Fail("cannot open its project directory " + options.m_strDirectory + ": " +
                  probe.LastResult().m_strWords + "; it ends, to be started again",
              kExitLostDirectory);
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

// Null when there are to be none, or cannot be: then it goes on and says so.
std::unique_ptr<CStatusFiles> StartStatusFiles(const SServerOptions& options,
                                               const std::shared_ptr<CTraffic>& traffic) {
  const std::string& named = options.m_strStatusDirectory;
  if (named.empty()) return nullptr;
  auto files = std::make_unique<CStatusFiles>(options, traffic);
  const std::string why = files->Start(!options.m_bNoConfine);
  if (why.empty()) return files;
  std::cerr << "kqft-server: no status files: status directory " + named + ": " + why + "\n";
  return nullptr;
}

bool IsFile(const std::string& accessLog) {
  return !accessLog.empty() && accessLog != kOutputStream;
}

// Before the first thread of the process, which would stay free.
std::string Confine(const SServerOptions& options, const std::string& logDirectory) {
  SConfinement confinement;
  confinement.m_strDataDirectory = DirectoryForLibrary(options.m_strDirectory);
  if (!logDirectory.empty()) confinement.m_strLogDirectory = DirectoryForLibrary(logDirectory);
  if (IsFile(options.m_strAccessLog)) {
    const std::filesystem::path place = PathOf(options.m_strAccessLog).parent_path();
    confinement.m_strMoreLogDirectory = DirectoryForLibrary(place.empty() ? "." : BytesOf(place));
  }
  confinement.m_bRemoveDirectories = !options.m_bNoDelete;
  confinement.m_nListenPort = options.m_nPort;
  confinement.m_bAbstractSockets = EnvironmentWord("NOTIFY_SOCKET").starts_with('@');
  return ConfineProcess(confinement);
}

// systemd counts in the time of the clock that this one shows.
void TellReopened(CAccessLog* access) {
  const auto now = std::chrono::duration_cast<std::chrono::microseconds>(
      std::chrono::steady_clock::now().time_since_epoch());
  NotifyServiceManager("RELOADING=1\nMONOTONIC_USEC=" + std::to_string(now.count()));
  if (access != nullptr) access->Lines().Reopen();
  NotifyServiceManager("READY=1");
}

void WaitForEnd(CDataServer& server, CAccessLog* access) {
  const bool isAsked = !EnvironmentWord("NOTIFY_SOCKET").empty();
  std::string told;
  for (;;) {
    switch (WaitForServiceRequest(kStatusMs)) {
      case EServiceRequest::kEnd:
        return;
      case EServiceRequest::kReopen:
        TellReopened(access);
        break;
      case EServiceRequest::kNone:
        break;
    }
    if (!isAsked) continue;
    const std::string status = server.Status();
    if (status != told) NotifyServiceManager("STATUS=" + status);
    told = status;
  }
}

// The logs of sessions and server follow by themselves when they are moved.
int Serve(const SServerOptions& options, const std::string& logDirectory,
          const std::shared_ptr<CAccessLog>& access) {
  const auto traffic = std::make_shared<CTraffic>();
  auto server = std::make_unique<CDataServer>(options, access, traffic);
  const bool logs = !logDirectory.empty();
  server->SetLog(logs ? DirectoryForLibrary(logDirectory) : "", logs);
  CTimeConvert::ConvertCurTimeToString();  // reads the time zone
  if (logs) KeepServerLogsFresh(logDirectory, options.m_nLogDays, !options.m_bNoConfine);
  const auto files = StartStatusFiles(options, traffic);
  if (!options.m_bNoConfine) {
    if (IsBelowUserMount(options.m_strDirectory)) {
      std::cerr << "kqft-server: " + options.m_strDirectory +
                       " is no root of its mount: when the file system is loaded anew the server "
                       "loses its right to it, and ends\n";
    }
    const std::string why = Confine(options, logDirectory);
    if (!why.empty()) {
      return Fail("cannot confine itself to its directories: " + why +
                  "; --no-confine starts it unconfined");
    }
  }
  CDirectoryProbe probe(options.m_strDirectory);
  if (!probe.LastResult().m_bOk) return FailWithoutDirectory(options, probe);
  if (access && !access->Lines().Start()) return Fail("no thread for the access log");
  const std::string place = options.m_strListenAddress + ":";
  if (!server->Init(options.m_nPort)) {
    return Fail("cannot listen on " + place + std::to_string(options.m_nPort) +
                ": the port is in use, or the address or port is not to be had");
  }
  std::cerr << "listening on " + place + std::to_string(server->ListenPort()) +
                   (options.m_bNoConfine ? " (not confined)\n"
                                         : std::string(" (") + ConfinementWord() + ")\n");
  NotifyServiceManager("READY=1");
  if (!probe.Start(RequestTermination)) return Fail("no thread to look at the directory");
  if (files) files->Begin(server->ListenPort(), [probe] { return probe.LastResult().m_strWords; });
  WaitForEnd(*server, access.get());
  NotifyServiceManager("STOPPING=1");
  const bool ended = EndServer(std::move(server), kStopBoundMs);
  if (access) access->CutOff(*traffic);  // what the server has not come to
  if (access) access->Lines().Close(kLastLinesMs);
  if (files) files->Close(kLastLinesMs);
  const bool isLost = !probe.LastResult().m_bOk;
  const int status = isLost ? FailWithoutDirectory(options, probe) : kExitDone;
  if (!ended) {
    LeaveService();
    std::_Exit(status);
  }
  return status;
}

// As a rule a second server is a mistake. Files are locked while they are
// received, so that those that are meant to share a directory may.
bool TakeDirectory(const std::string& directory) {
  const EDirectoryLock lock = LockDirectory(directory);
  if (lock == EDirectoryLock::kUnlocked) {
    std::cerr << "kqft-server: " + directory +
                     " cannot be locked here: nothing stops a second server in it\n";
  }
  return lock != EDirectoryLock::kTaken;
}

int Run(int argc, char** argv) {
  SServerOptions options;
  int status = kExitDone;
  if (!ParseServerOptions(argc, argv, options, status)) return status;
  if (options.m_verify.m_bVerify) return VerifyProjects(options.m_strDirectory, options.m_verify);
  HoldServiceRequests();

  if (const std::string why = WhyUnusable(options.m_strDirectory); !why.empty()) {
    return Fail("project directory " + options.m_strDirectory + ": " + why);
  }
  if (!options.m_bShared && !TakeDirectory(options.m_strDirectory)) {
    return Fail("project directory " + options.m_strDirectory +
                ": another server serves it; --shared lets both");
  }
  std::shared_ptr<CAccessLog> access;
  if (!options.m_strAccessLog.empty()) {
    access = std::make_shared<CAccessLog>(options.m_strAccessLog,
                                          DirectoryForLibrary(options.m_strDirectory));
    if (!access->Lines().Open()) {
      return Fail("access log " + options.m_strAccessLog + ": cannot write to such a file");
    }
  }
  return Serve(options, ChooseLogDirectory(options), access);
}

}  // namespace

int main(int argc, char** argv) {
  return StartServiceProgram(argc, argv, &Run);
}
