#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "transfer/TransferItem.h"

struct STransferResult;

/// How far a put or get is. Nothing of it falls back while one runs.
struct STransferProgress {
  std::int64_t m_llDone = 0;   ///< bytes that are at the other side, kept ones counted
  std::int64_t m_llTotal = 0;  ///< bytes of all files
  std::int64_t m_llMoved = 0;  ///< bytes of file data that crossed the network
  std::size_t m_nFilesDone = 0;
  std::size_t m_nFilesTotal = 0;
  std::string m_strFile;          ///< the one on its way, as in messages; "" for none
  std::int64_t m_llFileDone = 0;  ///< of that one; begins anew with each file
  std::int64_t m_llFileSize = 0;  ///< of that one
  double m_dBytesPerSecond = 0;   ///< over the last seconds
  std::int64_t m_llSilentMs = 0;  ///< so long nothing has come, left or been read here
};

/// Something that a put does not send, or that could not be looked into.
struct SLeftOut {
  std::string m_strPath;
  std::string m_strWhy;
  bool m_bProblem = false;  ///< it should have been looked into and could not be
};

/// Told what happens while an operation of CProjectClient runs.
///
/// Threads: calls come one at a time, on the thread that called the operation
/// or on one of the library's while that thread waits. An observer returns
/// soon, throws nothing, and calls nothing of the client but Cancel.
/// Every function does nothing unless it is overridden.
class ITransferObserver {
 public:
  virtual ~ITransferObserver() = default;

  /// A walk over local files met something that is not sent, or one over those
  /// of the server a directory that could not be looked into.
  virtual void OnLeftOut(const SLeftOut&) {}

  /// All files are known; nothing has been moved yet.
  /// @param files, bytes  those that are not known to be at the other side
  virtual void OnPlanned(std::size_t /*files*/, std::int64_t /*bytes*/) {}

  /// Comes every few milliseconds while data moves.
  virtual void OnProgress(const STransferProgress&) {}

  /// A file came to its end: done, or given up with code and words. Once for
  /// each file.
  virtual void OnFileEnd(const STransferItem&) {}

  /// An answer has been awaited for longer than a moment.
  /// @param why what for, in words
  virtual void OnWaiting(const std::string& /*why*/) {}

  /// Of a Watch: a round has ended in which something was to be sent. One that
  /// failed is tried again, and told each time.
  virtual void OnRound(const STransferResult&) {}

  /// The connection is made again.
  virtual void OnReconnecting() {}

  /// It could not be made. @param why in words
  virtual void OnNotConnected(int /*code*/, const std::string& /*why*/) {}

  /// Something failed and is tried again after a pause.
  /// @param files that fell short; 0 for the connection, or a file of our own
  /// @param why   the last failure, in words
  virtual void OnRetrying(std::size_t /*files*/, int /*pauseMs*/, const std::string& /*why*/) {}
};
