// Numbers and names as people read them.

#include "programs/kqft/Text.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "protocol/ResultCodes.h"

namespace {

constexpr std::int64_t kKibi = 1024;
constexpr std::int64_t kSecondsInMinute = 60;

std::string WithCommas(std::int64_t number) {
  std::string digits = std::to_string(number);
  const std::size_t first = number < 0 ? 1 : 0;
  for (std::size_t at = digits.size(); at > first + 3;) {
    at -= 3;
    digits.insert(at, ",");
  }
  return digits;
}

bool IsContinuation(unsigned char c) {
  return (c & 0xC0U) == 0x80U;
}

// Bytes of the character at `at`; 0 when no valid character begins there.
std::size_t Utf8Length(const std::string& text, std::size_t at) {
  const auto byte = [&](std::size_t i) {
    return i < text.size() ? static_cast<unsigned char>(text[i]) : static_cast<unsigned char>(0);
  };
  const unsigned char lead = byte(at);
  const unsigned char second = byte(at + 1);
  if (lead < 0x80) return 1;
  if (lead < 0xC2 || lead > 0xF4 || !IsContinuation(second)) return 0;
  if (lead < 0xE0) return 2;
  // Overlong forms, surrogates and what lies beyond U+10FFFF are no characters.
  if ((lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) ||
      (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second > 0x8F) ||
      !IsContinuation(byte(at + 2))) {
    return 0;
  }
  if (lead < 0xF0) return 3;
  return IsContinuation(byte(at + 3)) ? 4 : 0;
}

}  // namespace

std::string FormatSize(std::int64_t bytes) {
  static constexpr std::array kUnits = {"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  if (bytes < kKibi) return std::to_string(bytes) + " B";
  auto size = static_cast<double>(bytes) / kKibi;
  std::size_t unit = 0;
  // 1023.95 would be shown as 1024.0 of the smaller unit.
  for (; size >= 1023.95 && unit + 1 < kUnits.size(); ++unit) size /= kKibi;
  char text[32];
  std::snprintf(text, sizeof text, "%.1f %s", size, kUnits[unit]);
  return text;
}

std::string FormatExactSize(std::int64_t bytes) {
  const std::string exact = WithCommas(bytes) + (bytes == 1 ? " byte" : " bytes");
  return bytes < kKibi ? exact : FormatSize(bytes) + " (" + exact + ")";
}

std::string FormatDuration(std::int64_t seconds) {
  const std::int64_t minutes = seconds / kSecondsInMinute;
  const auto two = [](std::int64_t n) { return (n < 10 ? ":0" : ":") + std::to_string(n); };
  if (minutes < kSecondsInMinute) {
    return std::to_string(minutes) + two(seconds % kSecondsInMinute);
  }
  return std::to_string(minutes / kSecondsInMinute) + two(minutes % kSecondsInMinute) +
         two(seconds % kSecondsInMinute);
}

std::string FormatCount(std::size_t count) {
  return WithCommas(static_cast<std::int64_t>(count));
}

std::string FormatFiles(std::size_t count) {
  return std::to_string(count) + (count == 1 ? " file" : " files");
}

std::string Printable(const std::string& name) {
  std::string shown;
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte != 0x7F) {
      shown += c;
      continue;
    }
    char escaped[8];
    std::snprintf(escaped, sizeof escaped, "\\x%02X", static_cast<unsigned>(byte));
    shown += escaped;
  }
  return shown;
}

std::string PrintableServerName(std::string name) {
  std::replace(name.begin(), name.end(), '\\', '/');
  return Printable(name);
}

bool IsUtf8(const std::string& text) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = Utf8Length(text, at);
    if (length == 0) return false;
    at += length;
  }
  return true;
}

std::string ReplaceNonUtf8(const std::string& text) {
  std::string result;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = Utf8Length(text, at);
    result += length == 0 ? "\xEF\xBF\xBD" : text.substr(at, length);
    at += std::max<std::size_t>(length, 1);
  }
  return result;
}
