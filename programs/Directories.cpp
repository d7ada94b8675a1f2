// Directories that the programs are given or choose themselves.

#include "programs/Directories.h"

#include <filesystem>
#include <fstream>
#include <random>

#include "platform/PathBytes.h"
#include "platform/UserDirectories.h"

namespace fs = std::filesystem;

namespace {

bool HasMeaningOfItsOwn(char c) {
  // "\" separates for the library, whatever the system makes of it.
  return c == '\\' && fs::path::preferred_separator != '\\';
}

// Permission bits do not tell about read-only file systems, quotas or the
// rights of root; a file does.
bool CanMakeFile(const fs::path& directory) {
  std::random_device random;
  const fs::path probe = directory / (".kqft-probe-" + std::to_string(random()));
  const bool made = std::ofstream(probe).is_open();
  std::error_code ignored;
  fs::remove(probe, ignored);
  return made;
}

}  // namespace

std::string DirectoryForLibrary(const std::string& path) {
  std::error_code error;
  fs::path absolute = fs::absolute(PathOf(path), error);
  if (error) absolute = PathOf(path);
  return BytesOf(absolute.lexically_normal() / "");
}

std::string WhyUnusable(const std::string& directory) {
  std::error_code error;
  const fs::file_status status = fs::status(PathOf(directory), error);
  if (!fs::exists(status)) return "no such directory";
  if (!fs::is_directory(status)) return "not a directory";
  for (const char c : DirectoryForLibrary(directory)) {
    if (HasMeaningOfItsOwn(c)) return "a name with \"\\\" cannot be used";
  }
  if (!CanMakeFile(PathOf(directory))) return "cannot write into it";
  return "";
}

std::string UserConfigFile(const std::string& name) {
  for (const char* const variable : {"XDG_CONFIG_HOME", "APPDATA"}) {
    if (const std::string home = EnvironmentWord(variable); !home.empty()) {
      return BytesOf(PathOf(home) / PathOf(name));
    }
  }
  const std::string home = EnvironmentWord("HOME");
  return home.empty() ? "" : BytesOf(PathOf(home) / ".config" / PathOf(name));
}

std::string FirstUsableDirectory(const std::vector<std::string>& candidates) {
  for (const std::string& candidate : candidates) {
    if (candidate.empty()) continue;
    std::error_code ignored;
    fs::create_directories(PathOf(candidate), ignored);
    if (WhyUnusable(candidate).empty()) return candidate;
  }
  return "";
}
