#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "support/LoopbackServer.h"
#include "support/TestSystem.h"

/// The programs as a test runs them: processes of their own, ended by id.

constexpr int kInterrupt = 2;
constexpr int kKill = 9;
constexpr int kTerminate = 15;
constexpr int kContinue = 18;
constexpr int kHalt = 19;

/// One process. Its output and error streams go to files.
class CProgram {
 public:
  CProgram(const std::string& path, const std::vector<std::string>& arguments);
  CProgram(const CProgram&) = delete;
  CProgram& operator=(const CProgram&) = delete;

  /// Kills the process when it still runs.
  ~CProgram();

  void Signal(int number) const;
  bool IsRunning();

  /// Waits for the end. @return the exit status; 128 + number of the signal
  ///         that ended it; -1 when it does not end within 60 s.
  int Wait();

  /// Resident memory.
  std::int64_t MemoryBytes() const;

  std::string Output() const { return ReadWholeFile(m_directory / "out"); }
  std::string Error() const { return ReadWholeFile(m_directory / "err"); }

 private:
  CTempDirectory m_directory;
  int m_nPid = -1;
  int m_nStatus = -1;  // once it has ended
};

/// A kqft-server with directories of its own, ready.
class CServerProgram {
 public:
  CServerProgram();

  /// The same server again, on the same port, after the process ended.
  void Restart();

  CProgram& Process() { return *m_pProcess; }
  int Port() const { return m_nPort; }
  std::string Place() const { return "127.0.0.1:" + std::to_string(m_nPort); }
  std::string ProjectPath(const std::string& name) const { return m_projects / name; }

 private:
  void Start(int port);

  CTempDirectory m_projects;
  CTempDirectory m_logs;
  std::unique_ptr<CProgram> m_pProcess;
  int m_nPort = 0;
};

/// How a kqft that has ended did.
struct SRun {
  int m_nStatus = -1;
  std::string m_strOutput;
  std::string m_strError;
  std::chrono::milliseconds m_took{0};
};

/// A workstation: calls kqft from a local address of its own, since the
/// server tells clients apart by their address.
class CWorkstation {
 public:
  CWorkstation(const CServerProgram& server, const std::string& address);

  SRun Run(const std::vector<std::string>& arguments) const;
  std::unique_ptr<CProgram> Start(const std::vector<std::string>& arguments) const;

 private:
  const std::string m_strPlace;
  const std::string m_strAddress;
  CTempDirectory m_logs;
};

/// Runs a program to its end.
SRun RunProgram(const std::string& path, const std::vector<std::string>& arguments);

/// A file of zeros that takes no room on the disk.
void MakeSparseFile(const std::string& path, std::int64_t bytes);

/// Every regular file below a directory, by relative name, with its content.
std::vector<std::pair<std::string, std::string>> TreeOf(const std::string& directory);

/// Plays the service manager for the programs that this test starts from now
/// on: hears what they tell about their state.
class CServiceManager {
 public:
  CServiceManager();
  CServiceManager(const CServiceManager&) = delete;
  CServiceManager& operator=(const CServiceManager&) = delete;
  ~CServiceManager();

  /// The next message; waits at most 60 s for it.
  std::string Next() const;

 private:
  CTempDirectory m_directory;
  int m_nSocket;
};
