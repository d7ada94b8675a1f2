#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "support/Processes.h"
#include "support/TestSystem.h"

/// The programs as a test runs them: processes of their own, ended by id.

using Arguments = std::vector<std::string>;

/// Every file below a directory but inventories, by its name there, with its
/// content.
std::map<std::string, std::string> ReadTree(const std::string& directory);

/// One process. Its output and error streams go to files.
class CProgram {
 public:
  CProgram(const std::string& path, const Arguments& arguments);

  /// Kills the process when it still runs.
  ~CProgram();

  void Signal(int number) const;
  bool IsRunning();

  /// Waits for the end. @return the exit status; 128 + number of the signal
  ///         that ended it; -1 when it does not end within 60 s.
  int Wait();

  std::string Output() const { return ReadWholeFile(m_directory / "out"); }
  std::string Error() const { return ReadWholeFile(m_directory / "err"); }

 private:
  CTempDirectory m_directory;
  std::intptr_t m_process = kNoProcess;
  int m_nStatus = -1;  // once it has ended
};

/// A kqft-server with directories of its own, ready.
class CServerProgram {
 public:
  /// @param more further arguments; as a rule those that let tests run quickly
  ///             and on every kernel
  explicit CServerProgram(Arguments more = {"--no-confine", "--no-durable"})
      : m_more(std::move(more)) {
    Start();
  }

  /// One more over the directory of another one, which outlives it.
  explicit CServerProgram(const CServerProgram& other)
      : m_strShared(other.m_projects.Path()), m_more({"--no-confine", "--shared"}) {
    Start();
  }

  /// The same server again, on the same port, after the process ended.
  void Start();

  /// Waits until no client that was killed has a link left, which would hold
  /// its file; where the system keeps such links, starts the server anew.
  void ForgetKilled();

  CProgram& Process() { return *m_pProcess; }
  int Port() const { return m_nPort; }
  std::string ProjectPath(const std::string& name) const { return m_projects / name; }
  const std::string& LogPath() const { return m_logs.Path(); }

 private:
  CTempDirectory m_projects;
  CTempDirectory m_logs;
  const std::string m_strShared;  // "": a directory of its own
  const Arguments m_more;
  std::unique_ptr<CProgram> m_pProcess;
  int m_nPort = 0;
};

/// A workstation: calls kqft from a local address of its own, since the
/// server tells clients apart by their address. A configuration file names
/// server and address.
class CWorkstation {
 public:
  explicit CWorkstation(int port, const std::string& address = "127.0.0.2");

  std::unique_ptr<CProgram> Start(Arguments arguments) const;
  std::unique_ptr<CProgram> Run(const Arguments& arguments) const;  ///< to its end

 private:
  CTempDirectory m_directory;
};
