// Bandwidth: a balance of bytes that fills at the rate in force, and who moves
// some may overdraw it by one step.

#include "transfer/Bandwidth.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cmath>
#include <sstream>
#include <utility>

#include "platform/System.h"

namespace {

constexpr int kLeastRate = 1024;
constexpr double kMostRate = 1U << 30U;
constexpr int kLookMs = 1000;  // how often the time of day is asked for

// What may move at once: a twentieth of a second's.
constexpr int kStepsPerSecond = 20;
constexpr int kLeastStep = 1024;
constexpr int kMostStep = 1 << 20;
constexpr double kBalanceSeconds = 0.25;

double UnitOf(char c) {
  switch (c) {
    case 'k':
    case 'K':
      return 1024;
    case 'm':
    case 'M':
      return 1024 * 1024;
    case 'g':
    case 'G':
      return 1024 * 1024 * 1024;
    default:
      return 0;
  }
}

bool ParseRate(const std::string& text, int& rate) {
  rate = 0;
  if (text == "off") return true;
  const bool hasUnit = !text.empty() && UnitOf(text.back()) > 0;
  const char* const end = text.data() + text.size() - (hasUnit ? 1 : 0);
  double number = 0;
  const auto [stop, error] = std::from_chars(text.data(), end, number, std::chars_format::fixed);
  if (error != std::errc() || stop != end) return false;
  number *= hasUnit ? UnitOf(text.back()) : 1;
  if (!(number >= kLeastRate && number <= kMostRate)) return false;
  rate = static_cast<int>(number);
  return true;
}

// "08:00"
bool ParseMinute(const std::string& text, int& minute) {
  int hours = 0, minutes = 0;
  const char* const begin = text.data();
  if (text.size() != 5 || text[2] != ':' || text[0] == '-' || text[3] == '-') return false;
  const auto hour = std::from_chars(begin, begin + 2, hours);
  const auto rest = std::from_chars(begin + 3, begin + 5, minutes);
  if (hour.ptr != begin + 2 || rest.ptr != begin + 5 || hours > 23 || minutes > 59) return false;
  minute = hours * 60 + minutes;
  return true;
}

}  // namespace

std::string CBandwidth::Parse(const std::string& text, std::vector<SBandwidthStep>& steps) {
  steps.clear();
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    const std::size_t comma = word.find(',');
    SBandwidthStep& step = steps.emplace_back();
    const bool hasTime = comma != std::string::npos;
    if (hasTime && !ParseMinute(word.substr(0, comma), step.m_nMinute)) {
      return word + " does not begin with a time such as 08:00";
    }
    if (!ParseRate(word.substr(hasTime ? comma + 1 : 0), step.m_nRate)) {
      return word + " is no rate such as 512k, 10M or off (at least 1k, at most 1G)";
    }
    if (!hasTime && (steps.size() > 1 || words >> word)) return "several rates need their times";
  }
  if (steps.empty()) return "it is empty";
  const auto earlier = [](const SBandwidthStep& a, const SBandwidthStep& b) {
    return a.m_nMinute < b.m_nMinute;
  };
  std::sort(steps.begin(), steps.end(), earlier);
  return "";
}

CBandwidth::CBandwidth(std::vector<SBandwidthStep> steps) : m_vecSteps(std::move(steps)) {}

// Called under m_mutex. Before the first time of a day the last one counts.
int CBandwidth::RateNow(std::int64_t now) const {
  if (now < m_llLookMs || m_vecSteps.empty()) return m_nRate;
  m_llLookMs = now + kLookMs;
  SCalendarTime time;
  System().LocalTime(System().WallSeconds(), time);
  const int minute = time.m_nHour * 60 + time.m_nMinute;
  const auto next =
      std::find_if(m_vecSteps.begin(), m_vecSteps.end(),
                   [minute](const SBandwidthStep& step) { return step.m_nMinute > minute; });
  m_nRate = (next == m_vecSteps.begin() ? m_vecSteps.back() : *(next - 1)).m_nRate;
  return m_nRate;
}

int CBandwidth::Rate() const {
  const std::lock_guard guard(m_mutex);
  return RateNow(System().SteadyMilliseconds());
}

// Returns whether a step may move; else how long that takes.
bool CBandwidth::Refill(int& step, int& waitMs) {
  const std::lock_guard guard(m_mutex);
  const std::int64_t now = System().SteadyMilliseconds();
  const int rate = RateNow(now);
  const auto passed = static_cast<double>(now - std::exchange(m_llThenMs, now)) / 1000;
  if (rate == 0) {
    m_dBalance = 0;
    step = INT_MAX;
    return true;
  }
  m_dBalance = std::min(m_dBalance + passed * rate, kBalanceSeconds * rate);
  step = std::clamp(rate / kStepsPerSecond, kLeastStep, kMostStep);
  waitMs = static_cast<int>(std::ceil(-m_dBalance * 1000 / rate));
  return m_dBalance >= 0;
}

int CBandwidth::Wait(int ms) {
  int step = 0, waitMs = 0;
  if (Refill(step, waitMs)) return step;
  System().Sleep(std::min(ms, waitMs));
  return Refill(step, waitMs) ? step : 0;
}

void CBandwidth::Moved(std::size_t bytes) {
  const std::lock_guard guard(m_mutex);
  m_dBalance -= static_cast<double>(bytes);
}
