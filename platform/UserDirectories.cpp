// Directories of the user, as the environment names them.

#include "platform/UserDirectories.h"

#include <filesystem>

#include "platform/PathBytes.h"

std::string UserStateDirectory() {
  if (std::string state = EnvironmentWord("XDG_STATE_HOME"); !state.empty()) return state;
  if (const std::string home = EnvironmentWord("HOME"); !home.empty()) {
    return BytesOf(PathOf(home) / ".local" / "state");
  }
  return EnvironmentWord("LOCALAPPDATA");
}
