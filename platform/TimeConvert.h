#pragma once

#include <cstdint>
#include <string>

#include "KQFileTransServiceExport.h"

/// The clock as the library reads and prints it.
class KQFT_API CTimeConvert {
 public:
  /// Whole seconds since 1970. Read for differences: it follows a steady
  /// clock, so a change of the wall clock while the process runs is not seen.
  static std::int64_t GetCurTime();

  /// Whole seconds since 1970 on the wall clock, as texts and names show them.
  static std::int64_t GetWallTime();

  /// Local time as "YYYY-MM-DD_HH-MM-SS", fit for a file name; the second one
  /// that of the wall clock.
  static std::string ConvertTimeToString(std::int64_t seconds);
  static std::string ConvertCurTimeToString();
};
