#pragma once

#include <cstdint>
#include <string>

#include "platform/KQFile.h"

/// Brings one received file to the disk: while it arrives, at its end, and
/// what a failure leaves of it.
///
/// A disk that cannot keep what it took says so once; from then on the file
/// looks whole. So after a failure the file is cut to the length that is known
/// to lie on the disk, and a client that goes on from its length sends the
/// rest again.
///
/// Threads: the delivery thread of the session.
class CDurableUpload {
 public:
  /// How many directories above a file get a new entry when it is made with
  /// all that are missing.
  static int CountNewEntries(const std::string& path);

  /// A file was opened to be received.
  /// @param newEntries as counted before; 0 when the file existed
  /// @param keptBytes  its length; 0 when it was emptied
  /// Blocks: as End, when the file before it never came to its end.
  void Begin(const std::string& path, int newEntries, std::int64_t keptBytes);

  /// Counts a stored chunk and now and then starts to bring what was stored to
  /// the disk.
  /// @return false when some of it could not be brought there
  /// Blocks: until what the call before last started has been written.
  bool Wrote(CFileHandle& file, std::int64_t position, std::int64_t bytes);

  /// @return true when the file and the way to it lie on the disk
  /// Blocks: for at most two steps of data, and for the directories' entries.
  bool End(CFileHandle& file);

  /// This much of the file is known to lie on the disk.
  std::int64_t SafeBytes() const { return m_llSafeBytes; }

  /// As End, for a file whose end never came; true when there is none.
  bool EndPending();

 private:
  bool Fail(CFileHandle& file);

  std::string m_strPath;              // "" once its end has been confirmed
  int m_nNewEntries = 0;              // in as many directories above it
  bool m_bFailed = false;             // since Begin
  bool m_bInOrder = true;             // each chunk began where the last one ended
  std::int64_t m_llSafeBytes = 0;     // this much lies on the disk
  std::int64_t m_llStartedBytes = 0;  // this much was on its way at the last step
  std::int64_t m_llEnd = 0;           // where the last chunk ended
  std::int64_t m_llStepBytes = 0;     // stored since the last step
};
