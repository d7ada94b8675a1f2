#pragma once

#include <chrono>
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
  using Clock = std::chrono::steady_clock;

  double Rate(Clock::time_point now, std::int64_t done);

  COutput& m_output;
  const std::string m_strCommand;
  const Clock::duration m_interval;
  Clock::time_point m_next;
  std::deque<std::pair<Clock::time_point, std::int64_t>> m_samples;  // of the last seconds
};

/// The text of one progress line, at most `width` columns wide where that is
/// not 0.
/// @param rate bytes per second
std::string ProgressLine(const SProgress& progress, double rate, std::size_t width);
