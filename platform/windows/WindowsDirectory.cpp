// Directories on Windows: making, listing, free space.

#include "platform/windows/WindowsDirectory.h"

#include <algorithm>
#include <cstddef>
#include <memory>

#include "platform/DirectoryOrder.h"
#include "platform/windows/WindowsPath.h"
#include "platform/windows/WindowsPlace.h"

namespace {

constexpr std::size_t kBlockBytes = 64 << 10;

std::int64_t TimeOf(const LARGE_INTEGER& moment) {
  FILETIME time = {};
  time.dwLowDateTime = moment.LowPart;
  time.dwHighDateTime = static_cast<DWORD>(moment.HighPart);
  return ToUnixSeconds(time);
}

SDirectoryEntry DescribeDot(const char* name, const std::vector<SFoundEntry>& found) {
  SDirectoryEntry entry;
  entry.m_strName = name;
  entry.m_nAttributes = kAttributeDirectory;
  for (const SFoundEntry& one : found) {
    if (ToUtf8(one.m_strName) == name) entry.m_llCreateTime = one.m_llCreateTime;
  }
  return entry;
}

SDirectoryEntry Describe(const SFoundEntry& found) {
  SDirectoryEntry entry;
  entry.m_strName = ToUtf8(found.m_strName);
  entry.m_nAttributes = found.m_nAttributes;
  if ((found.m_nAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) entry.m_llSize = found.m_llSize;
  entry.m_llCreateTime = found.m_llCreateTime;
  return entry;
}

ESystemError FindDirectory(const std::string& path, CPlace& place, CHandle& handle) {
  ESystemError error = place.Find(path);
  if (error == ESystemError::kNone && IsRootPath(place.Path())) error = ESystemError::kBadPath;
  if (error == ESystemError::kNone) {
    error = place.Open(FILE_LIST_DIRECTORY | FILE_READ_ATTRIBUTES, OPEN_EXISTING, true, handle);
  }
  BY_HANDLE_FILE_INFORMATION found = {};
  if (error == ESystemError::kNone && GetFileInformationByHandle(handle.Get(), &found) != 0 &&
      (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
    error = ESystemError::kNotFound;
  }
  return error;
}

}  // namespace

bool IsDotName(const std::wstring& name) {
  return name == L"." || name == L"..";
}

ESystemError ReadEntries(HANDLE directory, std::vector<SFoundEntry>& entries) {
  alignas(8) char block[kBlockBytes];
  for (;;) {
    if (GetFileInformationByHandleEx(directory, FileIdBothDirectoryInfo, block, sizeof block) ==
        0) {
      const DWORD code = GetLastError();
      const bool isEnd = code == ERROR_NO_MORE_FILES || code == ERROR_FILE_NOT_FOUND;
      return isEnd ? ESystemError::kNone : ToSystemError(code);
    }
    for (std::size_t at = 0;;) {
      const auto* const info = reinterpret_cast<const FILE_ID_BOTH_DIR_INFO*>(block + at);
      SFoundEntry& entry = entries.emplace_back();
      entry.m_strName.assign(info->FileName, info->FileNameLength / sizeof(wchar_t));
      entry.m_nAttributes = info->FileAttributes;
      entry.m_llSize = info->EndOfFile.QuadPart;
      entry.m_llCreateTime = TimeOf(info->CreationTime);
      if (info->NextEntryOffset == 0) break;
      at += info->NextEntryOffset;
    }
  }
}

ESystemError CWindowsSystem::MakeDirectory(const std::string& path) {
  CPlace place;
  const ESystemError error = place.Find(path);
  if (error != ESystemError::kNone) return error;
  return LastError(CreateDirectoryW(place.Path().c_str(), nullptr) == 0);
}

ESystemError CWindowsSystem::RemoveEmptyDirectory(const std::string& path) {
  CPlace place;
  const ESystemError error = place.Find(path);
  if (error != ESystemError::kNone) return error;
  if (IsRootPath(place.Path())) return ESystemError::kBadPath;
  if (!MayRemoveDirectories()) return ESystemError::kAccess;
  return LastError(RemoveDirectoryW(place.Path().c_str()) == 0);
}

// NTFS writes names in its journal, in order; there is no call to wait for it.
ESystemError CWindowsSystem::FlushDirectory(const std::string& path) {
  CPlace place;
  CHandle handle;
  const ESystemError error = place.Find(path);
  if (error != ESystemError::kNone) return error;
  return place.Open(FILE_LIST_DIRECTORY, OPEN_EXISTING, true, handle);
}

ESystemError CWindowsSystem::ListDirectory(const std::string& path,
                                           std::vector<SDirectoryEntry>& entries) {
  entries.clear();
  CPlace place;
  CHandle handle;
  ESystemError error = FindDirectory(path, place, handle);
  std::vector<SFoundEntry> found;
  if (error == ESystemError::kNone) error = ReadEntries(handle.Get(), found);
  if (error != ESystemError::kNone) return error;
  entries.push_back(DescribeDot(".", found));
  entries.push_back(DescribeDot("..", found));
  for (const SFoundEntry& one : found) {
    if (!IsDotName(one.m_strName)) entries.push_back(Describe(one));
  }
  std::sort(entries.begin() + 2, entries.end(),
            [](const SDirectoryEntry& a, const SDirectoryEntry& b) {
              return IsListedBefore(a.m_strName, b.m_strName);
            });
  return ESystemError::kNone;
}

// The drive as its letters say; a share has no letters and is asked itself.
ESystemError CWindowsSystem::QueryFreeSpace(const std::string& path, std::uint64_t& bytes) {
  constexpr std::size_t kDriveCharacters = 3;
  bytes = 0;
  std::wstring native;
  if (path.find('\0') != std::string::npos) return ESystemError::kBadPath;
  const bool isShare = path.find_first_not_of("\\/") == 2;
  if (!ToNativePath(isShare ? path : path.substr(0, kDriveCharacters), native)) {
    return ESystemError::kBadPath;
  }
  ULARGE_INTEGER mine = {};
  ULARGE_INTEGER whole = {};
  ULARGE_INTEGER free = {};
  if (GetDiskFreeSpaceExW(native.c_str(), &mine, &whole, &free) == 0) {
    return ToSystemError(GetLastError());
  }
  bytes = free.QuadPart;
  return ESystemError::kNone;
}
