#pragma once

#include <cstdint>

#include "platform/System.h"

/// Counts tries that brought nothing, and says how long to wait before the
/// next one.
class CRetry {
 public:
  /// @param tries   so many in a row may bring nothing
  /// @param seconds so long they may, however many they are
  CRetry(int tries, int seconds);

  /// A try has ended, and not everything is done.
  /// @return milliseconds to wait before the next one, growing from 1 to 30 s;
  ///         -1: there is to be none
  int Next(bool gained);

  /// Only the seconds still count.
  void ForgoTries() { m_nFailures = m_nTries; }

 private:
  const int m_nTries;
  const std::int64_t m_llPatienceMs;
  int m_nFailures = 0;  // in a row without a gain
  std::int64_t m_llSinceMs = System().SteadyMilliseconds();
};
