// Sleeping, number parsing and the existence of files.

#include "platform/KQPlatForm.h"

#include <limits>

#include "platform/System.h"

void CKQPlatForm::KQSleep(int ms) {
  System().Sleep(ms);
}

std::int64_t CKQPlatForm::KQToLONGLONG(const std::string& text) {
  using Limits = std::numeric_limits<std::int64_t>;
  std::size_t at = text.find_first_not_of(" \t\n\v\f\r");
  if (at == std::string::npos) return 0;
  const bool negative = text[at] == '-';
  if (negative || text[at] == '+') ++at;
  // Counted downwards: the lowest number has no positive counterpart.
  std::int64_t value = 0;
  for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
    const int digit = text[at] - '0';
    if (value < (Limits::min() + digit) / 10) return negative ? Limits::min() : Limits::max();
    value = value * 10 - digit;
  }
  if (negative) return value;
  return value == Limits::min() ? Limits::max() : -value;
}

bool CKQPlatForm::IsFileExist(const std::string& path) {
  SFileStatus status;
  return System().QueryFile(path, status) == ESystemError::kNone;
}

bool CKQPlatForm::IsFileMissing(const std::string& path) {
  SFileStatus status;
  const ESystemError error = System().QueryFile(path, status);
  return error == ESystemError::kNotFound || error == ESystemError::kBadPath;
}
