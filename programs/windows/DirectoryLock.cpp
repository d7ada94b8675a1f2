// Directories are locked by an event that is named for where they lie, which
// the system forgets with its last owner: opening one such that others cannot
// would be in the way of those who list it.

#include "programs/DirectoryLock.h"

#include <windows.h>

#include <string>

#include "platform/PathBytes.h"

EDirectoryLock LockDirectory(const std::string& directory) {
  HANDLE const opened = CreateFileW(PathOf(directory).c_str(), FILE_READ_ATTRIBUTES,
                                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                                    OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (opened == INVALID_HANDLE_VALUE) return EDirectoryLock::kUnlocked;
  BY_HANDLE_FILE_INFORMATION found = {};
  const bool known = GetFileInformationByHandle(opened, &found) != 0;
  CloseHandle(opened);
  if (!known) return EDirectoryLock::kUnlocked;
  std::wstring name = L"Global\\kqft-server";
  for (const DWORD part : {found.dwVolumeSerialNumber, found.nFileIndexHigh, found.nFileIndexLow}) {
    name += L"-" + std::to_wstring(part);
  }
  HANDLE const lock = CreateEventW(nullptr, TRUE, FALSE, name.c_str());
  const DWORD code = GetLastError();
  if (lock != nullptr && code != ERROR_ALREADY_EXISTS) return EDirectoryLock::kHeld;  // stays open
  if (lock != nullptr) CloseHandle(lock);
  // One of another user may not even be opened.
  const bool taken = code == ERROR_ALREADY_EXISTS || code == ERROR_ACCESS_DENIED;
  return taken ? EDirectoryLock::kTaken : EDirectoryLock::kUnlocked;
}
