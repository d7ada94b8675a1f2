#pragma once

#include <algorithm>
#include <filesystem>
#include <string>

#include "platform/LocalNames.h"
#include "platform/PathBytes.h"

/// Files that not every system can have.

/// Makes a symbolic link to a file or directory. @return false on a system
/// that lets nobody do so
inline bool MakeLink(const std::string& target, const std::string& link) {
  std::error_code error;
  std::filesystem::create_directory_symlink(PathOf(target), PathOf(link), error);
  return !error;
}

/// The name, or on a system that does not take it the other one.
inline std::string NameOr(const std::string& name, const std::string& other) {
  return WhyNoLocalName(name).empty() ? name : other;
}

/// A text with paths of this system in it, with "/" between their parts.
inline std::string Generic(std::string text) {
  std::replace(text.begin(), text.end(), '\\', '/');
  return text;
}

/// Removes a file also where a mark keeps it from being removed.
inline void RemoveMarked(const std::string& path) {
  std::filesystem::permissions(PathOf(path), std::filesystem::perms::owner_write,
                               std::filesystem::perm_options::add);
  std::filesystem::remove(PathOf(path));
}
