// Where POSIX systems keep the logs of services.

#include "programs/Directories.h"

std::string SystemLogDirectory() {
  return "/var/log/kqft";
}
