#pragma once

#include <vector>

#include "platform/windows/WindowsSystem.h"

/// What listing and clearing a directory share. For the sources of this
/// folder only.

/// One entry as the file system keeps it.
struct SFoundEntry {
  std::wstring m_strName;
  DWORD m_nAttributes = 0;
  std::int64_t m_llSize = 0;
  std::int64_t m_llCreateTime = 0;  // seconds since 1970
};

/// What an open directory holds, "." and ".." among it where the file system
/// tells them. The directory is opened with FILE_LIST_DIRECTORY.
ESystemError ReadEntries(HANDLE directory, std::vector<SFoundEntry>& entries);

/// True for "." and "..".
bool IsDotName(const std::wstring& name);
