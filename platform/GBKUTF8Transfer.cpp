// UTF-8 to wide text.

#include "platform/GBKUTF8Transfer.h"

#include <cstddef>
#include <cstdint>

namespace {

constexpr std::uint32_t kReplacement = 0xFFFD;
constexpr std::uint32_t kLastCodePoint = 0x10FFFF;

bool IsSurrogate(std::uint32_t code) {
  return code >= 0xD800 && code <= 0xDFFF;
}

// Decodes the character at `at` and moves past it; past one byte when it is
// no UTF-8.
std::uint32_t TakeCodePoint(const std::string& text, std::size_t& at) {
  constexpr std::uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
  const auto byteAt = [&text](std::size_t i) {
    return static_cast<std::uint32_t>(static_cast<unsigned char>(text[i]));
  };
  const std::uint32_t first = byteAt(at++);
  if (first < 0x80) return first;
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC0 || first >= 0xF8 || text.size() - at < length - 1) return kReplacement;
  std::uint32_t code = first & (0x7FU >> length);
  for (std::size_t i = 0; i + 1 < length; ++i) {
    if ((byteAt(at + i) & 0xC0) != 0x80) return kReplacement;
    code = code << 6 | (byteAt(at + i) & 0x3F);
  }
  if (code < kSmallest[length] || code > kLastCodePoint || IsSurrogate(code)) return kReplacement;
  at += length - 1;
  return code;
}

}  // namespace

std::wstring GBKUTF8Transfer::StringToWString(const std::string& text) {
  std::wstring wide;
  wide.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    const std::uint32_t code = TakeCodePoint(text, at);
    if (sizeof(wchar_t) == 2 && code > 0xFFFF) {
      wide += static_cast<wchar_t>(0xD800 + ((code - 0x10000) >> 10));
      wide += static_cast<wchar_t>(0xDC00 + (code & 0x3FF));
    } else {
      wide += static_cast<wchar_t>(code);
    }
  }
  return wide;
}
