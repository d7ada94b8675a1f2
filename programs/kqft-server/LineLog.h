#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

/// Appends lines to a file, whole and in order, on a thread of its own, within
/// about 50 ms.
///
/// Who adds a line waits only while 1 MiB of them is on its way, and a second
/// at most. A file that cannot be written takes nobody's time: lines are kept
/// as long as they fit, and those that do not are counted.
///
/// Threads: every operation from any thread, once Open has returned.
class CLineLog {
 public:
  /// @param path     of a regular file; "-": the output stream
  /// @param lostLine makes a line that tells how many were lost
  CLineLog(std::string path, std::function<std::string(std::int64_t)> lostLine);
  CLineLog(const CLineLog&) = delete;
  CLineLog& operator=(const CLineLog&) = delete;

  /// As Close, for a moment.
  ~CLineLog();

  /// Opens the file; what a process that was killed left unfinished there gets
  /// its end.
  /// @return false when it cannot be opened
  bool Open();

  /// Starts the thread. @return false when none is to be had
  bool Start();

  /// @param line without its end
  void Add(std::string line);

  /// Soon goes on in a new file of that name, when the old one was moved.
  void Reopen();

  /// Writes what was added so far; what comes later is dropped.
  /// Blocks: until that is done, or for as long as it was told.
  void Close(int milliseconds);

 private:
  struct SState;
  const std::shared_ptr<SState> m_pState;  // the thread's as well
};
