// Retry: when to try again, and when that is of no use any more.

#include "transfer/Retry.h"

#include <algorithm>

namespace {

constexpr int kFirstPauseMs = 1000;
constexpr int kLongestPauseMs = 30000;
constexpr int kMostDoublings = 8;

}  // namespace

CRetry::CRetry(int tries, int seconds)
    : m_nTries(tries), m_llPatienceMs(std::int64_t{1000} * seconds) {}

int CRetry::Next(bool gained) {
  const std::int64_t now = System().SteadyMilliseconds();
  m_nFailures = gained ? 1 : m_nFailures + 1;
  if (gained) m_llSinceMs = now;
  if (m_nFailures > m_nTries && now - m_llSinceMs >= m_llPatienceMs) return -1;
  return std::min(kFirstPauseMs << std::min(m_nFailures - 1, kMostDoublings), kLongestPauseMs);
}
