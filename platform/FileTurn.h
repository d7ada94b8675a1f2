#pragma once

#include <memory>
#include <mutex>
#include <string>

class ISystemFile;

/// The turn to change a file that is replaced as a whole: from reading it until
/// the new one has its name, among all who ask for it, in this process, others,
/// and on a distributed file system those of other machines. Stands beside the
/// file as a locked one of its own, of which nothing is left at the end, and what
/// a crash leaves the next turn takes away.
///
/// Threads: one thread per object.
class CFileTurn {
 public:
  CFileTurn() = default;
  CFileTurn(const CFileTurn&) = delete;
  CFileTurn& operator=(const CFileTurn&) = delete;

  /// Ends the turn.
  ~CFileTurn();

  /// @param path where no link leads on from; its directory exists
  /// @return false when others have it all the time, or the disk is full. On a
  ///         file system without locks only this process takes turns.
  /// Blocks: while others have it, up to 5 s.
  bool Take(const std::string& path);

  /// Takes away what a crash has left beside the file, where nobody else would:
  /// the change may have been the last one.
  /// Blocks: while another thread of this process has the turn.
  static void ClearLeft(const std::string& path);

  /// Where the new content is to be made. Nobody else uses the name, which is
  /// that of the machine, this process and the file; what has it is of no use.
  const std::string& Temporary() const { return m_strTemporary; }

 private:
  enum class ETry { kTaken, kOthers, kFailed };
  void Begin(const std::string& path);
  ETry TryOnce();

  std::unique_lock<std::mutex> m_process;  // this process's turn
  std::string m_strDirectory;
  std::string m_strStem;  // of the names below
  std::string m_strLock;
  std::string m_strTemporary;
  std::unique_ptr<ISystemFile> m_pFile;  // held; null where there are no locks
};
