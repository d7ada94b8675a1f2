#pragma once

#include <string>
#include <vector>

#include "platform/windows/WindowsSystem.h"

/// Where in the file system a path leads. For the sources of this folder only.
///
/// In a process that confined itself only places in its directories are
/// found, by where they really lie: the directory of the name is opened and
/// asked for its own path. While the place lives, that one stays open such
/// that neither it nor any above it can be moved or replaced, so that system
/// calls may go by the path. What lies there in other letters is not there.
class CPlace {
 public:
  /// @return kBadPath, see ToNativePath; kAccess outside of the directories
  ESystemError Find(const std::string& path);

  const std::wstring& Path() const { return m_strPath; }

  /// Opens what lies there, directories as well. In a confined process a link
  /// is opened nowhere.
  /// @param disposition OPEN_EXISTING, OPEN_ALWAYS or CREATE_NEW
  /// @param share       who else may have it open
  /// @param follow      where a link leads, else the link itself
  ESystemError Open(DWORD access, DWORD disposition, bool follow, CHandle& handle,
                    DWORD share = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE) const;

 private:
  ESystemError Hold();

  std::wstring m_strPath;
  CHandle m_held;  // open only in a confined process
};

/// From now on places are found in these directories only; "" names none.
/// @return what failed
ESystemError KeepTo(const std::vector<std::string>& directories, bool removeDirectories);

/// Whether a confined process may remove directories.
bool MayRemoveDirectories();

/// True for links: what leads elsewhere in the place of a file or directory.
/// What merely stores files in its own way (compressed, in a cloud) is none.
bool IsLink(HANDLE handle);
