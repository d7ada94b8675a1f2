#pragma once

#include <filesystem>
#include <string>

#include "platform/PathBytes.h"

/// Makes a symbolic link to a file or directory. @return false on a system
/// that lets nobody do so
inline bool MakeLink(const std::string& target, const std::string& link) {
  std::error_code error;
  std::filesystem::create_directory_symlink(PathOf(target), PathOf(link), error);
  return !error;
}
