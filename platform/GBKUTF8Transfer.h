#pragma once

#include <string>

/// Text conversion for wide system calls.
class GBKUTF8Transfer {
 public:
  /// Converts UTF-8 to the platform's wide text; bytes that are no UTF-8
  /// become U+FFFD. Systems whose paths are bytes never need it.
  static std::wstring StringToWString(const std::string& text);
};
