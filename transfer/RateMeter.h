#pragma once

#include <cstdint>
#include <deque>
#include <utility>

/// Bytes per second over the last seconds, so that the rate follows the line
/// without flicker. Threads: one.
class CRateMeter {
 public:
  /// @param moved bytes so far
  /// @return bytes per second
  double Count(std::int64_t moved);

 private:
  std::deque<std::pair<std::int64_t, std::int64_t>> m_samples;  // time in ms, bytes
};

/// How long nothing has moved. Threads: one.
class CSilenceMeter {
 public:
  /// @param signs of life so far
  /// @return milliseconds since there were fewer
  std::int64_t Count(std::int64_t signs);

  /// Begins anew.
  void Reset() { m_llSigns = -1; }

 private:
  std::int64_t m_llSigns = -1;
  std::int64_t m_llSinceMs = 0;
};
