// The rate of a transfer, and its silence.

#include "transfer/RateMeter.h"

#include "platform/System.h"

namespace {

constexpr std::int64_t kWindowMs = 3000;
constexpr std::int64_t kBetweenSamplesMs = 50;

}  // namespace

double CRateMeter::Count(std::int64_t moved) {
  const std::int64_t now = System().SteadyMilliseconds();
  if (m_samples.empty() || now - m_samples.back().first >= kBetweenSamplesMs) {
    m_samples.emplace_back(now, moved);
  }
  while (m_samples.size() > 2 && now - m_samples[1].first >= kWindowMs) m_samples.pop_front();
  const auto& [since, before] = m_samples.front();
  if (now <= since || moved <= before) return 0;
  return static_cast<double>(moved - before) * 1000 / static_cast<double>(now - since);
}

std::int64_t CSilenceMeter::Count(std::int64_t signs) {
  const std::int64_t now = System().SteadyMilliseconds();
  if (signs != m_llSigns) m_llSinceMs = now;
  m_llSigns = signs;
  return now - m_llSinceMs;
}
