// Names on a POSIX system are bytes, and what an environment holds are, too.

#include <cstdlib>

#include "platform/LocalNames.h"
#include "platform/PathBytes.h"
#include "platform/UserDirectories.h"

std::string WhyNoLocalName(std::string_view) {
  return "";
}

std::string FoldLocalName(const std::string& name) {
  return name;
}

std::string EnvironmentWord(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? "" : value;
}

std::filesystem::path PathOf(const std::string& bytes) {
  return bytes;
}

std::string BytesOf(const std::filesystem::path& path) {
  return path.string();
}
