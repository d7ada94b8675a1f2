#pragma once

#include <string>
#include <string_view>

/// What some editors put before UTF-8 text.
inline constexpr std::string_view kUtf8ByteOrderMark = "\xEF\xBB\xBF";

/// Text conversion for wide system calls.
class GBKUTF8Transfer {
 public:
  /// Converts UTF-8 to the platform's wide text; bytes that are no UTF-8
  /// become U+FFFD. Systems whose paths are bytes never need it.
  static std::wstring StringToWString(const std::string& text);
};
