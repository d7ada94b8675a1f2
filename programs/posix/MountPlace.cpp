// Where a directory is mounted, on Linux.

#include "programs/MountPlace.h"

#include <sys/stat.h>
#include <sys/vfs.h>

bool IsBelowUserMount(const std::string& directory) {
  constexpr long kUserFileSystem = 0x65735546;
  struct statfs system = {};
  struct stat own = {};
  struct stat above = {};
  if (statfs(directory.c_str(), &system) != 0 || system.f_type != kUserFileSystem) return false;
  return stat(directory.c_str(), &own) == 0 && stat((directory + "/..").c_str(), &above) == 0 &&
         own.st_dev == above.st_dev;
}
