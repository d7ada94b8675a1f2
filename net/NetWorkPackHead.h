#pragma once

#include <climits>
#include <cstddef>
#include <cstring>

#include "platform/ByteOrder.h"

constexpr int kPackHeadBytes = 20;

/// The largest body a packet may announce. A larger one closes the link; the
/// room below INT_MAX lets head and send-side slack be added to it safely.
constexpr int kMaxBodyBytes = INT_MAX - 148;

/// The head in front of every packet body, 20 bytes, integers little-endian:
///
///     0  marker "KQFT"      8  version, 1       16  zero
///     4  message code      12  body length
class CNetWorkPackHead {
 public:
  CNetWorkPackHead() {
    std::memcpy(m_bytes, "KQFT", 4);
    WriteUInt32(m_bytes + 8, kVersion);
  }

  void SetCode(unsigned code) { WriteUInt32(m_bytes + 4, code); }
  void SetBodyLength(unsigned bytes) { WriteUInt32(m_bytes + 12, bytes); }
  void CopyTo(char* target) const { std::memcpy(target, m_bytes, kPackHeadBytes); }

  /// What the 20 bytes at `p` say. IsValid looks at marker, version and at
  /// the bound of the length.
  static bool IsValid(const char* p) {
    return std::memcmp(p, "KQFT", 4) == 0 && ReadUInt32(p + 8) == kVersion &&
           BodyLength(p) <= static_cast<unsigned>(kMaxBodyBytes);
  }
  /// Whether a head may begin with these first bytes of a link, however few.
  static bool MayBegin(const char* p, std::size_t bytes) {
    return std::memcmp(p, "KQFT", bytes < 4 ? bytes : 4) == 0;
  }
  static unsigned Code(const char* p) { return ReadUInt32(p + 4); }
  static unsigned BodyLength(const char* p) { return ReadUInt32(p + 12); }

 private:
  static constexpr unsigned kVersion = 1;
  char m_bytes[kPackHeadBytes] = {};
};
