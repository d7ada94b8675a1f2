#pragma once

#include <string>

#include "platform/ByteOrder.h"

/// Pieces of message bodies, to be joined with "+".
inline std::string Int32(std::int32_t value) {
  std::string bytes(4, '\0');
  WriteInt32(bytes.data(), value);
  return bytes;
}

inline std::string Int64(std::int64_t value) {
  std::string bytes(8, '\0');
  WriteInt64(bytes.data(), value);
  return bytes;
}
