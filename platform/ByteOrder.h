#pragma once

#include <cstdint>

/// Little-endian integers at any address, whatever the machine's own order.

inline std::uint32_t ReadUInt32(const char* p) {
  const auto* b = reinterpret_cast<const unsigned char*>(p);
  return static_cast<std::uint32_t>(b[0]) | static_cast<std::uint32_t>(b[1]) << 8 |
         static_cast<std::uint32_t>(b[2]) << 16 | static_cast<std::uint32_t>(b[3]) << 24;
}

inline std::int32_t ReadInt32(const char* p) {
  return static_cast<std::int32_t>(ReadUInt32(p));
}

inline std::int64_t ReadInt64(const char* p) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(ReadUInt32(p)) |
                                   static_cast<std::uint64_t>(ReadUInt32(p + 4)) << 32);
}

inline void WriteUInt32(char* p, std::uint32_t value) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<char>(value >> (8 * i) & 0xff);
}

inline void WriteInt32(char* p, std::int32_t value) {
  WriteUInt32(p, static_cast<std::uint32_t>(value));
}

inline void WriteInt64(char* p, std::int64_t value) {
  WriteUInt32(p, static_cast<std::uint32_t>(static_cast<std::uint64_t>(value) & 0xffffffffU));
  WriteUInt32(p + 4, static_cast<std::uint32_t>(static_cast<std::uint64_t>(value) >> 32));
}
