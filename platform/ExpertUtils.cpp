// Strings and paths.

#include "platform/ExpertUtils.h"

#include <algorithm>
#include <utility>

#include "platform/System.h"

namespace {

constexpr const char* kSeparators = "\\/";

std::string WithoutTrailingSeparators(const std::string& path) {
  return path.substr(0, path.find_last_not_of(kSeparators) + 1);  // npos + 1 is 0
}

// Where the last component begins.
std::size_t NameStart(const std::string& path) {
  return path.find_last_of(kSeparators) + 1;  // npos + 1 is 0
}

// The dot of the last component's extension, npos when it has none.
std::size_t ExtensionDot(const std::string& path) {
  const std::size_t dot = path.rfind('.');
  return dot == std::string::npos || dot < NameStart(path) ? std::string::npos : dot;
}

bool IsDirectory(const std::string& path) {
  SFileStatus status;
  return System().QueryFile(path, status) == ESystemError::kNone && status.m_bDirectory;
}

}  // namespace

namespace EU {

bool CExpertUtils::Left(std::string& s, int n) {
  if (n <= 0) {
    s.clear();
  } else if (static_cast<std::size_t>(n) < s.size()) {
    s.resize(static_cast<std::size_t>(n));
  }
  return true;
}

bool CExpertUtils::Right(std::string& s, int n) {
  if (n <= 0) {
    s.clear();
  } else if (static_cast<std::size_t>(n) < s.size()) {
    s.erase(0, s.size() - static_cast<std::size_t>(n));
  }
  return true;
}

int CExpertUtils::BreakString(const std::string& s, std::list<std::string>& out,
                              const std::string& sep) {
  if (s.empty()) return 0;
  int pieces = 1;
  std::size_t begin = 0;
  for (;; ++pieces) {
    const std::size_t end = sep.empty() ? std::string::npos : s.find(sep, begin);
    if (end == std::string::npos) break;
    out.push_back(s.substr(begin, end - begin));
    begin = end + sep.size();
  }
  out.push_back(s.substr(begin));
  return pieces;
}

std::string CExpertUtils::PickDirectory(const std::string& path) {
  return path.substr(0, NameStart(path));
}

std::string CExpertUtils::PickDirectory(const std::string& path, int level) {
  if (level <= 1) return path;
  std::string directory = PickDirectory(path);
  for (int above = 2; above < level && !directory.empty(); ++above) {
    directory = PickDirectory(WithoutTrailingSeparators(directory));
  }
  return directory;
}

std::string CExpertUtils::PickFileName(const std::string& path) {
  const std::string whole = WithoutTrailingSeparators(path);
  return whole.substr(NameStart(whole));
}

std::string CExpertUtils::PickFileExt(const std::string& path) {
  const std::string name = PickFileName(path);
  const std::size_t dot = ExtensionDot(name);
  return dot == std::string::npos ? "" : name.substr(dot + 1);
}

std::string CExpertUtils::EreaseFileExt(const std::string& name) {
  return name.substr(0, ExtensionDot(name));
}

void CExpertUtils::RelaceString(std::string& s, const std::string& from, const std::string& to) {
  if (from.empty()) return;
  std::string replaced;
  std::size_t begin = 0;
  for (std::size_t at = s.find(from); at != std::string::npos; at = s.find(from, begin)) {
    replaced.append(s, begin, at - begin).append(to);
    begin = at + from.size();
  }
  if (begin == 0) return;
  s = replaced.append(s, begin);
}

std::string& CExpertUtils::ToLower(std::string& s) {
  std::transform(s.begin(), s.end(), s.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return s;
}

int CExpertUtils::CreateAllDir(const std::string& path) {
  const std::string directory = PickDirectory(path);
  if (directory.empty()) return 1;
  // Looked at as a whole first: the part before a NUL byte must not be made.
  if (directory.find('\0') != std::string::npos) return 0;
  if (IsDirectory(directory)) return 1;
  for (std::size_t end = directory.find_first_of(kSeparators, 1); end != std::string::npos;
       end = directory.find_first_of(kSeparators, end + 1)) {
    // Failures do not matter as long as the directory is there in the end: those
    // above it may exist beyond our rights to make them, or be no directories
    // by themselves, as a drive is.
    System().MakeDirectory(directory.substr(0, end));
  }
  return IsDirectory(directory) ? 1 : 0;
}

}  // namespace EU
