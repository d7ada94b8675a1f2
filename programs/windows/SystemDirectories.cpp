// Where Windows keeps what belongs to no user.

#include <filesystem>

#include "platform/UserDirectories.h"
#include "programs/Directories.h"

std::string SystemLogDirectory() {
  const std::string shared = EnvironmentWord("ProgramData");
  return shared.empty() ? "" : shared + "\\kqft\\log";
}
