#pragma once

#include <cstdint>
#include <string>
#include <system_error>

#include "KQFileTransServiceExport.h"

/// What stands beside the bytes of a file.
struct SFileLook {
  bool m_bRegular = false;
  std::int64_t m_llSize = 0;  ///< bytes
  std::int64_t m_llTime = 0;  ///< of the last change, nanoseconds since 1970, or their limit
  unsigned m_nMode = 0;       ///< permission bits, 0777 at most
};

/// Asks the operating system once for all of it. Windows keeps no modes: 0644
/// stands for a file there, 0444 for one that is marked as not to be written.
/// @param follow symbolic links; one that is not followed is no regular file
KQFT_API SFileLook LookAtFile(const std::string& path, std::error_code& error, bool follow = true);
