// Clock readings and their text form.

#include "platform/TimeConvert.h"

#include "platform/System.h"

namespace {

constexpr int kMillisecondsPerSecond = 1000;

// Decimal, filled with zeros in front; digits beyond the width stay.
std::string Padded(int value, std::size_t width) {
  const std::string digits = std::to_string(value);
  return digits.size() >= width ? digits : std::string(width - digits.size(), '0') + digits;
}

}  // namespace

std::int64_t CTimeConvert::GetCurTime() {
  return System().SteadyMilliseconds() / kMillisecondsPerSecond;
}

std::int64_t CTimeConvert::GetWallTime() {
  return System().WallSeconds();
}

std::string CTimeConvert::ConvertTimeToString(std::int64_t seconds) {
  SCalendarTime local;
  System().LocalTime(seconds, local);
  return Padded(local.m_nYear, 4) + '-' + Padded(local.m_nMonth, 2) + '-' +
         Padded(local.m_nDay, 2) + '_' + Padded(local.m_nHour, 2) + '-' +
         Padded(local.m_nMinute, 2) + '-' + Padded(local.m_nSecond, 2);
}

std::string CTimeConvert::ConvertCurTimeToString() {
  return ConvertTimeToString(GetWallTime());
}
