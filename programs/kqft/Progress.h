#pragma once

#include <cstdint>
#include <string>

#include "transfer/TransferObserver.h"

class COutput;

/// Shows progress: on a terminal one line redrawn, elsewhere a line every few
/// seconds, with --json status objects.
class CProgress {
 public:
  CProgress(COutput& output, std::string command);

  /// To be called often; shows as much as is fit to see.
  void Show(const STransferProgress& progress);

  /// Takes the redrawn line away.
  void End();

 private:
  COutput& m_output;
  const std::string m_strCommand;
  const int m_nIntervalMs;
  std::int64_t m_llNextMs;
};

/// The text of one progress line, at most `width` columns wide where that is
/// not 0.
std::string ProgressLine(const STransferProgress& progress, std::size_t width);
