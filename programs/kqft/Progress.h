#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <utility>

class COutput;

/// How far a transfer is.
struct SProgress {
  std::int64_t m_llDone = 0;
  std::int64_t m_llTotal = 0;
  std::size_t m_nFilesDone = 0;
  std::size_t m_nFilesTotal = 0;
  std::string m_strFile;  ///< the one on its way
};

/// Shows progress: on a terminal one line redrawn, elsewhere a line every few
/// seconds, with --json status objects.
class CProgress {
 public:
  CProgress(COutput& output, std::string command);

  /// To be called often; shows as much as is fit to see.
  void Show(const SProgress& progress);

  /// Takes the redrawn line away.
  void End();

 private:
  double Rate(std::int64_t nowMs, std::int64_t done);

  COutput& m_output;
  const std::string m_strCommand;
  const int m_nIntervalMs;
  std::int64_t m_llNextMs;
  std::deque<std::pair<std::int64_t, std::int64_t>> m_samples;  // time and bytes, last seconds
};

/// The text of one progress line, at most `width` columns wide where that is
/// not 0.
/// @param rate bytes per second
std::string ProgressLine(const SProgress& progress, double rate, std::size_t width);
