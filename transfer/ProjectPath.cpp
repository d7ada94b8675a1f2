// Names of files below a project, and those that must not be.

#include "transfer/ProjectPath.h"

#include <algorithm>
#include <filesystem>

#include "platform/PathBytes.h"

bool IsOwnFile(std::string_view path) {
  std::string lowered(path);
  for (char& c : lowered) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lowered == kInventoryName || lowered == kOtherInventoryName ||
         lowered == kDamageNoteName || lowered == kSendingNoteName;
}

std::string WhyNoPath(std::string_view path) {
  if (path.size() > kLongestProjectPath) return "the name is too long";
  if (path.find('\0') != std::string_view::npos) return "the name holds a zero byte";
  if (path.find('\\') != std::string_view::npos) return "the name holds a \"\\\"";
  if (PathOf(std::string(path)).has_root_path()) return "the name leads elsewhere";
  for (std::size_t begin = 0; begin <= path.size();) {
    const std::size_t end = std::min(path.find('/', begin), path.size());
    const std::string_view part = path.substr(begin, end - begin);
    if (part.empty()) return "the name has an empty part";
    if (part == "." || part == "..") return "the name leads elsewhere";
    begin = end + 1;
  }
  return IsOwnFile(path) ? "the name is one of our own" : "";
}
