// Places in the file system, and the directories that a process keeps to.

#include "platform/windows/WindowsPlace.h"

#include <atomic>
#include <vector>

#include "platform/windows/WindowsPath.h"

namespace {

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

struct SRoots {
  std::vector<std::wstring> m_vecNamed;  // as they were given
  std::vector<std::wstring> m_vecReal;   // where they lie
  bool m_bRemoveDirectories = true;
};

// Set once, before the first thread.
std::atomic<const SRoots*> g_pRoots{nullptr};

bool IsSame(const wchar_t* a, const wchar_t* b, std::size_t length) {
  return CompareStringOrdinal(a, static_cast<int>(length), b, static_cast<int>(length), TRUE) ==
         CSTR_EQUAL;
}

bool IsIn(const std::wstring& path, const std::vector<std::wstring>& roots) {
  for (const std::wstring& root : roots) {
    if (path.size() < root.size() || !IsSame(path.data(), root.data(), root.size())) continue;
    if (path.size() == root.size() || path[root.size()] == L'\\' || root.back() == L'\\') {
      return true;
    }
  }
  return false;
}

bool IsOneOf(const std::wstring& path, const std::vector<std::wstring>& roots) {
  for (const std::wstring& root : roots) {
    if (path.size() == root.size() && IsSame(path.data(), root.data(), root.size())) return true;
  }
  return false;
}

// "" when it cannot be told.
std::wstring RealPath(HANDLE handle) {
  std::wstring path(32768, L'\0');
  const DWORD length = GetFinalPathNameByHandleW(handle, path.data(),
                                                 static_cast<DWORD>(path.size()), VOLUME_NAME_DOS);
  path.resize(length < path.size() ? length : 0);
  return path;
}

// Below a root, the rest of a path as it was asked for and as it lies there, in
// other letters. Names that differ so are several elsewhere: one file must not
// stand for two of them.
bool IsSpeltOtherwise(const std::wstring& asked, const std::wstring& real, const SRoots& roots) {
  for (std::size_t i = 0; i < roots.m_vecReal.size(); ++i) {
    for (const std::wstring* const root : {&roots.m_vecNamed[i], &roots.m_vecReal[i]}) {
      if (!IsIn(asked, {*root}) || !IsIn(real, {roots.m_vecReal[i]})) continue;
      const std::wstring askedRest = asked.substr(root->size());
      const std::wstring realRest = real.substr(roots.m_vecReal[i].size());
      if (askedRest.size() == realRest.size() && askedRest != realRest &&
          IsSame(askedRest.data(), realRest.data(), realRest.size())) {
        return true;
      }
    }
  }
  return false;
}

// Such that it cannot be moved away, nor anything above it.
CHandle OpenToHold(const std::wstring& directory) {
  return CHandle(CreateFileW(directory.c_str(), FILE_READ_ATTRIBUTES | FILE_LIST_DIRECTORY,
                             FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                             FILE_FLAG_BACKUP_SEMANTICS, nullptr));
}

ESystemError AddRoot(const std::string& directory, SRoots& roots) {
  std::wstring native;
  if (!ToNativePath(directory, native)) return ESystemError::kBadPath;
  const CHandle handle = OpenToHold(native);
  if (!handle.IsOpen()) return ToSystemError(GetLastError());
  const std::wstring real = RealPath(handle.Get());
  if (real.empty()) return ESystemError::kOther;
  roots.m_vecNamed.push_back(native);
  roots.m_vecReal.push_back(real);
  return ESystemError::kNone;
}

}  // namespace

ESystemError KeepTo(const std::vector<std::string>& directories, bool removeDirectories) {
  auto* const roots = new SRoots;  // as long as the process
  roots->m_bRemoveDirectories = removeDirectories;
  for (const std::string& directory : directories) {
    if (directory.empty()) continue;
    const ESystemError error = AddRoot(directory, *roots);
    if (error != ESystemError::kNone) return error;
  }
  g_pRoots = roots;
  return ESystemError::kNone;
}

bool MayRemoveDirectories() {
  const SRoots* const roots = g_pRoots;
  return roots == nullptr || roots->m_bRemoveDirectories;
}

bool IsLink(HANDLE handle) {
  FILE_ATTRIBUTE_TAG_INFO tag = {};
  if (GetFileInformationByHandleEx(handle, FileAttributeTagInfo, &tag, sizeof tag) == 0) {
    return false;  // a file system that knows no links
  }
  return (tag.FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 &&
         IsReparseTagNameSurrogate(tag.ReparseTag);
}

ESystemError CPlace::Find(const std::string& path) {
  m_held = CHandle();
  if (!ToNativePath(path, m_strPath)) return ESystemError::kBadPath;
  return g_pRoots.load() == nullptr ? ESystemError::kNone : Hold();
}

// What lies elsewhere by its name is not even looked at: already that could
// reach another machine.
ESystemError CPlace::Hold() {
  const SRoots& roots = *g_pRoots.load();
  if (!IsIn(m_strPath, roots.m_vecNamed) && !IsIn(m_strPath, roots.m_vecReal)) {
    return ESystemError::kAccess;
  }
  const bool isRoot = IsOneOf(m_strPath, roots.m_vecNamed) || IsOneOf(m_strPath, roots.m_vecReal);
  const std::size_t slash = m_strPath.rfind(L'\\');
  m_held = OpenToHold(isRoot ? m_strPath : m_strPath.substr(0, slash));
  if (!m_held.IsOpen()) return ToSystemError(GetLastError());
  const std::wstring real = RealPath(m_held.Get());
  if (!IsIn(real, roots.m_vecReal)) return ESystemError::kAccess;
  if (IsSpeltOtherwise(isRoot ? m_strPath : m_strPath.substr(0, slash), real, roots)) {
    return ESystemError::kNotFound;
  }
  m_strPath = isRoot ? real : real + m_strPath.substr(slash);
  return ESystemError::kNone;
}

ESystemError CPlace::Open(DWORD access, DWORD disposition, bool follow, CHandle& handle,
                          DWORD share) const {
  const SRoots* const roots = g_pRoots;
  const bool looksFirst = follow && roots != nullptr;
  const auto open = [&](DWORD way, DWORD flags) {
    return CHandle(CreateFileW(m_strPath.c_str(), access, share, nullptr, way,
                               FILE_ATTRIBUTE_NORMAL | FILE_FLAG_BACKUP_SEMANTICS | flags,
                               nullptr));
  };
  handle = open(disposition, follow && !looksFirst ? 0 : FILE_FLAG_OPEN_REPARSE_POINT);
  if (!handle.IsOpen()) return ToSystemError(GetLastError());
  if (roots != nullptr && IsSpeltOtherwise(m_strPath, RealPath(handle.Get()), *roots)) {
    handle = CHandle();
    return disposition == OPEN_EXISTING ? ESystemError::kNotFound : ESystemError::kExists;
  }
  if (!looksFirst) return ESystemError::kNone;
  BY_HANDLE_FILE_INFORMATION found = {};
  if (GetFileInformationByHandle(handle.Get(), &found) == 0) return ToSystemError(GetLastError());
  if ((found.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) return ESystemError::kNone;
  if (IsLink(handle.Get())) {
    handle = CHandle();
    return ESystemError::kAccess;
  }
  handle = open(OPEN_EXISTING, 0);
  return handle.IsOpen() ? ESystemError::kNone : ToSystemError(GetLastError());
}
