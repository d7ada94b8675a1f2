// Clearing a directory: deletes what is in it and nothing outside.
//
// Each directory on the way down is held open such that nobody can move it or
// put a link in its place; links are deleted, never gone into.

#include <string>
#include <utility>
#include <vector>

#include "platform/windows/WindowsDirectory.h"
#include "platform/windows/WindowsPath.h"
#include "platform/windows/WindowsPlace.h"

namespace {

// Others may look and write, not move or replace.
constexpr DWORD kShareInPlace = FILE_SHARE_READ | FILE_SHARE_WRITE;

// One directory on the way from the cleared one down to the current one.
struct SLevel {
  std::wstring m_strPath;
  CHandle m_handle;
  std::vector<std::wstring> m_vecLeft;  // paths of its subdirectories still to be cleared
};

class CDirectoryClearer {
 public:
  ESystemError Run(const std::wstring& path, CHandle directory) {
    Enter(path, std::move(directory));
    while (!m_vecLevels.empty()) {
      std::vector<std::wstring>& left = m_vecLevels.back().m_vecLeft;
      if (left.empty()) {
        Ascend();
        continue;
      }
      const std::wstring below = std::move(left.back());
      left.pop_back();
      Descend(below);
    }
    return m_error;
  }

 private:
  void Note(ESystemError error) {
    const bool isGone = error == ESystemError::kNotFound;
    if (m_error == ESystemError::kNone && !isGone) m_error = error;
  }

  // Makes a directory a level and deletes what is no directory in it.
  void Enter(const std::wstring& path, CHandle directory) {
    SLevel level{path, std::move(directory), {}};
    std::vector<SFoundEntry> entries;
    Note(ReadEntries(level.m_handle.Get(), entries));
    for (const SFoundEntry& entry : entries) {
      if (IsDotName(entry.m_strName)) continue;
      const std::wstring inside = path + L"\\" + entry.m_strName;
      if ((entry.m_nAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
        Delete(inside, entry.m_nAttributes);
      } else {
        level.m_vecLeft.push_back(inside);
      }
    }
    m_vecLevels.push_back(std::move(level));
  }

  void Delete(const std::wstring& path, DWORD attributes) {
    if ((attributes & FILE_ATTRIBUTE_READONLY) != 0) MakeWritable(path);
    Note(LastError(DeleteFileW(path.c_str()) == 0));
  }

  void Descend(const std::wstring& path) {
    CHandle handle(CreateFileW(path.c_str(), FILE_LIST_DIRECTORY | FILE_READ_ATTRIBUTES,
                               kShareInPlace, nullptr, OPEN_EXISTING,
                               FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    const bool isLink = handle.IsOpen() && IsLink(handle.Get());
    if (handle.IsOpen() && !isLink) return Enter(path, std::move(handle));
    handle = CHandle();
    Remove(path);
  }

  // Removes the directory that was left, unless it is the cleared one.
  void Ascend() {
    const std::wstring path = std::move(m_vecLevels.back().m_strPath);
    m_vecLevels.pop_back();
    if (!m_vecLevels.empty()) Remove(path);
  }

  void Remove(const std::wstring& path) {
    MakeWritable(path);
    Note(LastError(RemoveDirectoryW(path.c_str()) == 0));
  }

  // Used by the one thread that clears.
  std::vector<SLevel> m_vecLevels;             // from the cleared directory down
  ESystemError m_error = ESystemError::kNone;  // the first failure
};

}  // namespace

ESystemError CWindowsSystem::ClearDirectory(const std::string& path) {
  CPlace place;
  CHandle handle;
  ESystemError error = place.Find(path);
  if (error == ESystemError::kNone && IsRootPath(place.Path())) error = ESystemError::kBadPath;
  if (error == ESystemError::kNone && !MayRemoveDirectories()) error = ESystemError::kAccess;
  if (error == ESystemError::kNone) {
    error = place.Open(FILE_LIST_DIRECTORY | FILE_READ_ATTRIBUTES, OPEN_EXISTING, false, handle,
                       kShareInPlace);
  }
  if (error != ESystemError::kNone) return error;
  BY_HANDLE_FILE_INFORMATION found = {};
  if (GetFileInformationByHandle(handle.Get(), &found) == 0) return ToSystemError(GetLastError());
  const bool isDirectory = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  if (!isDirectory || IsLink(handle.Get())) return ESystemError::kNotFound;
  return CDirectoryClearer().Run(place.Path(), std::move(handle));
}
