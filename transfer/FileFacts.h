#pragma once

#include <cstdint>
#include <string>

#include "KQFTransferExport.h"
#include "platform/FileTimes.h"

/// What is known of a local file beside its bytes.
struct SFileFacts {
  std::int64_t m_llSize = 0;  ///< bytes
  std::int64_t m_llTime = 0;  ///< of the last change, nanoseconds since 1970
  unsigned m_nMode = 0;       ///< permission bits, 0777 at most
  friend bool operator==(const SFileFacts& a, const SFileFacts& b) {
    return a.m_llSize == b.m_llSize && IsSameFileTime(a.m_llTime, b.m_llTime) &&
           a.m_nMode == b.m_nMode;
  }
};

/// True for what counts as one version of a file: modes do not matter.
inline bool IsSameVersion(const SFileFacts& a, const SFileFacts& b) {
  return a.m_llSize == b.m_llSize && IsSameFileTime(a.m_llTime, b.m_llTime);
}

/// Asks for the facts of a regular file; symbolic links are followed.
/// @return "" or why they cannot be had
KQFT_TRANSFER_API std::string ReadFileFacts(const std::string& path, SFileFacts& facts);

/// Gives a file the time and the mode of `facts`; the size is not looked at.
/// A file system that counts time more coarsely keeps it as near as it can.
/// @return "" or why it could not
KQFT_TRANSFER_API std::string SetFileFacts(const std::string& path, const SFileFacts& facts);
