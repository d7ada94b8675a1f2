#pragma once

#include <cstdint>
#include <filesystem>
#include <system_error>

#include "KQFileTransServiceExport.h"

/// Times and modes of files, links followed; platform/FileLook.h reads them.

/// @param time of the last change, nanoseconds since 1970
KQFT_API void SetFileTime(const std::filesystem::path& path, std::int64_t time,
                          std::error_code& error);

/// Whether a file that is given one of them may come to have the other: on
/// POSIX the same, on Windows also those within 100 ns.
KQFT_API bool IsSameFileTime(std::int64_t a, std::int64_t b);

/// @param mode permission bits; Windows takes from them whether anybody may write
KQFT_API void SetFileMode(const std::filesystem::path& path, unsigned mode, std::error_code& error);
