#pragma once

#include <filesystem>
#include <string>

#include "KQFileTransServiceExport.h"

/// Paths of the standard library and the bytes that everything else here takes
/// them as: on POSIX the same, on Windows UTF-8. Bytes that are none become
/// U+FFFD there, so that no file is found; names that a peer sends are asked
/// about before (platform/LocalNames.h).
KQFT_API std::filesystem::path PathOf(const std::string& bytes);
KQFT_API std::string BytesOf(const std::filesystem::path& path);
