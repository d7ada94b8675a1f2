#pragma once

#include <cstdint>
#include <filesystem>
#include <system_error>

#include "KQFileTransServiceExport.h"

/// Times and modes of files, links followed.

/// When it was last changed, in nanoseconds since 1970; what lies behind the
/// range is its end.
KQFT_API std::int64_t ReadFileTime(const std::filesystem::path& path, std::error_code& error);
KQFT_API void SetFileTime(const std::filesystem::path& path, std::int64_t time,
                          std::error_code& error);

/// Whether a file that is given one of them may come to have the other: on
/// POSIX the same, on Windows also those within 100 ns.
KQFT_API bool IsSameFileTime(std::int64_t a, std::int64_t b);

/// The permission bits. Windows has none: 0644 stands for a file there, 0444
/// for one that is marked as not to be written.
KQFT_API unsigned ReadFileMode(const std::filesystem::path& path, std::error_code& error);
KQFT_API void SetFileMode(const std::filesystem::path& path, unsigned mode, std::error_code& error);
