#pragma once

#include <cstdint>
#include <string>

class CKQPlatForm {
 public:
  static void KQSleep(int ms);

  /// The decimal number that `text` begins with, blanks skipped; 0 when there
  /// is none; the nearest limit when it does not fit.
  static std::int64_t KQToLONGLONG(const std::string& text);

  /// True for anything that exists under the path, directories included; false
  /// as well when that cannot be told.
  static bool IsFileExist(const std::string& path);

  /// True when there surely is nothing under the path, or none can be.
  static bool IsFileMissing(const std::string& path);
};
