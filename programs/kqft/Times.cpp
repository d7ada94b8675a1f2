// Moments as people and programs read them.

#include "programs/kqft/Times.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "platform/System.h"

namespace {

constexpr std::int64_t kMinute = 60;  // seconds
constexpr std::int64_t kHour = 60 * kMinute;

// Seconds since 1970 if the calendar were that of UTC.
std::int64_t SecondsOf(const SCalendarTime& time) {
  const std::chrono::year_month_day day(std::chrono::year(time.m_nYear),
                                        std::chrono::month(static_cast<unsigned>(time.m_nMonth)),
                                        std::chrono::day(static_cast<unsigned>(time.m_nDay)));
  const std::int64_t midnight =
      std::chrono::sys_seconds(std::chrono::sys_days(day)).time_since_epoch().count();
  return midnight + time.m_nHour * kHour + time.m_nMinute * kMinute + time.m_nSecond;
}

// How far local time is ahead of UTC.
std::int64_t ZoneAt(std::int64_t seconds) {
  SCalendarTime local;
  System().LocalTime(seconds, local);
  return SecondsOf(local) - seconds;
}

std::string Format(std::int64_t seconds, char between, const char* colon) {
  SCalendarTime local;
  System().LocalTime(seconds, local);
  const std::int64_t zone = ZoneAt(seconds);
  char text[96];
  std::snprintf(text, sizeof text, "%04d-%02d-%02d%c%02d:%02d:%02d%s%c%02d%s%02d", local.m_nYear,
                local.m_nMonth, local.m_nDay, between, local.m_nHour, local.m_nMinute,
                local.m_nSecond, between == ' ' ? " " : "", zone < 0 ? '-' : '+',
                static_cast<int>(std::abs(zone) / kHour), colon,
                static_cast<int>(std::abs(zone) % kHour / kMinute));
  return text;
}

}  // namespace

std::string FormatTime(std::int64_t seconds) {
  return Format(seconds, ' ', "");
}

std::string FormatTimeForPrograms(std::int64_t seconds) {
  return Format(seconds, 'T', ":");
}

bool ParseServerTime(const std::string& text, std::int64_t& seconds) {
  SCalendarTime time;
  int length = 0;
  if (std::sscanf(text.c_str(), "%4d-%2d-%2d_%2d-%2d-%2d%n", &time.m_nYear, &time.m_nMonth,
                  &time.m_nDay, &time.m_nHour, &time.m_nMinute, &time.m_nSecond, &length) != 6 ||
      static_cast<std::size_t>(length) != text.size()) {
    return false;
  }
  const bool possible = time.m_nMonth >= 1 && time.m_nMonth <= 12 && time.m_nDay >= 1 &&
                        time.m_nDay <= 31 && time.m_nHour >= 0 && time.m_nHour < 24 &&
                        time.m_nMinute >= 0 && time.m_nMinute < 60 && time.m_nSecond >= 0 &&
                        time.m_nSecond <= 60;
  // The zone of a moment near it, then that of the moment.
  const std::int64_t near = SecondsOf(time) - ZoneAt(SecondsOf(time));
  seconds = SecondsOf(time) - ZoneAt(near);
  return possible;
}
