#pragma once

#include <cstdint>
#include <string>

class CHardWareCommon {
 public:
  /// Size in bytes; 0 when the path names no regular file, or that cannot be
  /// told.
  static std::uint64_t GetFileSize(const std::string& path);

  /// Deletes everything inside `dir`, not `dir` itself. Symbolic links are
  /// removed, never followed. Does nothing for "", a path with a NUL byte and
  /// the root directory.
  static void KQClearDir(const std::string& dir);
};
