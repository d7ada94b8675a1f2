// Directories of the user, as the environment names them.

#include "platform/UserDirectories.h"

#include <cstdlib>
#include <filesystem>

std::string EnvironmentWord(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

std::string UserStateDirectory() {
  if (std::string state = EnvironmentWord("XDG_STATE_HOME"); !state.empty()) return state;
  if (const std::string home = EnvironmentWord("HOME"); !home.empty()) {
    return (std::filesystem::path(home) / ".local" / "state").string();
  }
  return EnvironmentWord("LOCALAPPDATA");
}
