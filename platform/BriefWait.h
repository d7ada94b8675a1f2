#pragma once

#include <cstdint>
#include <thread>

#include "platform/SharedWord.h"
#include "platform/System.h"

/// Looks for some 50 µs whether a wait is over already before the caller goes
/// to sleep: to be woken on an idle processor costs as much, and answers on a
/// local network come sooner. Gives the processor away between two looks, and
/// looks less often the more often it was in vain; where others want the
/// processor and a look takes long, it ends after a millisecond.
///
/// Threads: any; they share the experience.
class CBriefWait {
 public:
  /// @return whether `isOver()` came true
  template <typename IsOver>
  bool Try(const IsOver& isOver) {
    m_nCalls += 1;
    const int looks = m_nCalls % kCallsPerTrial == 0 ? kMostLooks : m_nLooks.Load();
    const std::int64_t end = System().SteadyMilliseconds() + kLongestMs;
    for (int i = 0; i < looks && System().SteadyMilliseconds() <= end; ++i) {
      if (isOver()) {
        m_nLooks = kMostLooks;
        return true;
      }
      std::this_thread::yield();
    }
    m_nLooks = m_nLooks / 2;
    return false;
  }

 private:
  static constexpr int kMostLooks = 128;
  static constexpr int kLongestMs = 1;
  static constexpr int kCallsPerTrial = 64;  // full trials, in case waits became short

  CSharedWord<int> m_nLooks = kMostLooks;
  CSharedWord<unsigned> m_nCalls = 0;
};
