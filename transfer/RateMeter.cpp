// The rate of a transfer.

#include "transfer/RateMeter.h"

namespace {

constexpr std::chrono::seconds kWindow(3);
constexpr std::chrono::milliseconds kBetweenSamples(50);

}  // namespace

double CRateMeter::Count(std::int64_t moved) {
  const Clock::time_point now = Clock::now();
  if (m_samples.empty() || now - m_samples.back().first >= kBetweenSamples) {
    m_samples.emplace_back(now, moved);
  }
  while (m_samples.size() > 2 && now - m_samples[1].first >= kWindow) m_samples.pop_front();
  const auto& [since, before] = m_samples.front();
  const double seconds = std::chrono::duration<double>(now - since).count();
  return seconds > 0 && moved > before ? static_cast<double>(moved - before) / seconds : 0;
}
