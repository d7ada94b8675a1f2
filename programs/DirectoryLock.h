#pragma once

#include <string>

enum class EDirectoryLock {
  kHeld,      ///< until the process ends, however it does
  kTaken,     ///< by another process
  kUnlocked,  ///< the system or the file system cannot lock directories
};

/// Holds a directory for this process, against others that ask in the same way,
/// by whatever name. Nothing in the directory tells of it.
EDirectoryLock LockDirectory(const std::string& directory);
