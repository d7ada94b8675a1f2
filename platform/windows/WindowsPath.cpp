// Paths as Windows takes them, taken apart and put together here: the rules of
// its own parser give some names another meaning.

#include "platform/windows/WindowsPath.h"

#include <windows.h>

#include <algorithm>
#include <vector>

#include "platform/LocalNames.h"

namespace {

const std::wstring kVerbatim = L"\\\\?\\";
const std::wstring kVerbatimShare = L"\\\\?\\UNC\\";

bool IsLetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

std::vector<std::string> Split(const std::string& path) {
  std::vector<std::string> parts;
  for (std::size_t begin = 0; begin <= path.size();) {
    const std::size_t end = std::min(path.find('\\', begin), path.size());
    if (end > begin) parts.push_back(path.substr(begin, end - begin));
    begin = end + 1;
  }
  return parts;
}

std::string CurrentDirectory() {
  std::wstring directory(32768, L'\0');
  const DWORD length = GetCurrentDirectoryW(static_cast<DWORD>(directory.size()), directory.data());
  directory.resize(length < directory.size() ? length : 0);
  return FromNativePath(directory);
}

// What may not be gone above: a drive, or a host and its share.
struct SRoot {
  std::wstring m_strNative;
  std::size_t m_nParts = 0;  // of the path
};

bool FindRoot(const std::string& path, const std::vector<std::string>& parts, SRoot& root) {
  if (path.compare(0, 2, "\\\\") == 0) {
    std::wstring host;
    std::wstring share;
    if (parts.size() < 2 || parts[0] == "?" || parts[0] == "." || parts[1] == ".." ||
        !WhyNoLocalName(parts[0]).empty() || !ToWide(parts[0], host) || !ToWide(parts[1], share)) {
      return false;
    }
    root = {kVerbatimShare + host + L"\\" + share, 2};
    return true;
  }
  if (path.size() < 3 || !IsLetter(path[0]) || path[1] != ':' || path[2] != '\\') return false;
  root = {kVerbatim + static_cast<wchar_t>(path[0]) + L":", 1};
  return true;
}

}  // namespace

bool ToWide(const std::string& text, std::wstring& wide) {
  wide.clear();
  if (text.empty()) return true;
  const int size = static_cast<int>(text.size());
  const int length =
      MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), size, nullptr, 0);
  if (length <= 0) return false;
  wide.resize(static_cast<std::size_t>(length));
  return MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), size, wide.data(),
                             length) == length;
}

std::string ToUtf8(const std::wstring& wide) {
  if (wide.empty()) return "";
  const int size = static_cast<int>(wide.size());
  const int length =
      WideCharToMultiByte(CP_UTF8, 0, wide.data(), size, nullptr, 0, nullptr, nullptr);
  std::string text(static_cast<std::size_t>(std::max(length, 0)), '\0');
  WideCharToMultiByte(CP_UTF8, 0, wide.data(), size, text.data(), length, nullptr, nullptr);
  return text;
}

bool ToNativePath(const std::string& path, std::wstring& native) {
  native.clear();
  if (path.empty() || path.find('\0') != std::string::npos) return false;
  std::string whole = path;
  std::replace(whole.begin(), whole.end(), '/', '\\');
  if (whole.compare(0, 2, "\\\\") != 0 && (whole.size() < 2 || whole[1] != ':')) {
    const std::string current = CurrentDirectory();
    if (current.compare(0, 2, "\\\\") == 0 && whole[0] == '\\') return false;  // on no drive
    whole = whole[0] == '\\' ? current.substr(0, 2) + whole : current + "\\" + whole;
  }
  const std::vector<std::string> parts = Split(whole);
  SRoot root;
  if (!FindRoot(whole, parts, root)) return false;

  std::vector<std::wstring> kept;
  for (std::size_t i = root.m_nParts; i < parts.size(); ++i) {
    if (parts[i] == ".") continue;
    if (parts[i] == "..") {
      if (!kept.empty()) kept.pop_back();
      continue;
    }
    std::wstring wide;
    if (!WhyNoLocalName(parts[i]).empty() || !ToWide(parts[i], wide)) return false;
    kept.push_back(std::move(wide));
  }
  native = root.m_strNative;
  if (kept.empty()) native += L"\\";
  for (const std::wstring& part : kept) native += L"\\" + part;
  return true;
}

std::string FromNativePath(const std::wstring& native) {
  if (native.compare(0, kVerbatimShare.size(), kVerbatimShare) == 0) {
    return "\\\\" + ToUtf8(native.substr(kVerbatimShare.size()));
  }
  const bool verbatim = native.compare(0, kVerbatim.size(), kVerbatim) == 0;
  return ToUtf8(verbatim ? native.substr(kVerbatim.size()) : native);
}

bool IsRootPath(const std::wstring& native) {
  return !native.empty() && native.back() == L'\\';
}
