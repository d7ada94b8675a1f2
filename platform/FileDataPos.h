#pragma once

#include <cstdint>

/// 64-bit position or length as the protocol carries it.
using KQLonglong = std::int64_t;

/// One missing range of a file, in bytes.
struct FILEDATAPOS {
  KQLonglong llPos = 0;  ///< first missing byte
  KQLonglong llLen = 0;  ///< number of missing bytes
};
