// Directories are locked as they are: no file is left for anybody to list,
// remove or find stale.

#include "programs/DirectoryLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

EDirectoryLock LockDirectory(const std::string& directory) {
  const int fd = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return EDirectoryLock::kUnlocked;
  if (flock(fd, LOCK_EX | LOCK_NB) == 0) return EDirectoryLock::kHeld;  // stays open
  const bool taken = errno == EWOULDBLOCK;
  close(fd);
  return taken ? EDirectoryLock::kTaken : EDirectoryLock::kUnlocked;
}
