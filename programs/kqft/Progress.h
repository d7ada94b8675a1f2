#pragma once

#include <cstdint>
#include <mutex>
#include <string>

#include "transfer/TransferObserver.h"

class COutput;

/// Shows progress: on a terminal one line redrawn, elsewhere a line every few
/// seconds, with --json status objects. Says so when nothing moves.
///
/// Threads: one; ShowNow from any.
class CProgress {
 public:
  CProgress(COutput& output, std::string command);

  /// To be called often; shows as much as is fit to see.
  void Show(const STransferProgress& progress);

  /// Says on the error stream how far it is.
  void ShowNow();

  /// Takes the redrawn line away.
  void End();

 private:
  COutput& m_output;
  const std::string m_strCommand;
  const int m_nIntervalMs;
  std::int64_t m_llNextMs;
  bool m_bSilent = false;  // it was told that nothing moves
  std::mutex m_mutex;
  STransferProgress m_latest;  // guarded by m_mutex
};

/// The text of one progress line, at most `width` columns wide where that is
/// not 0.
std::string ProgressLine(const STransferProgress& progress, std::size_t width);
