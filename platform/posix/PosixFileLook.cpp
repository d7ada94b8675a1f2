// What stands beside the bytes of a file, by one call.

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <limits>

#include "platform/FileLook.h"

namespace {

constexpr std::int64_t kNanoseconds = 1000000000;
constexpr std::int64_t kMostSeconds = std::numeric_limits<std::int64_t>::max() / kNanoseconds - 1;
constexpr unsigned kModeBits = 0777;

}  // namespace

SFileLook LookAtFile(const std::string& path, std::error_code& error) {
  struct stat status {};
  error.clear();
  SFileLook look;
  if (stat(path.c_str(), &status) != 0) {
    error.assign(errno, std::generic_category());
    return look;
  }
  const std::int64_t seconds = status.st_mtim.tv_sec;
  look.m_bRegular = S_ISREG(status.st_mode);
  look.m_llSize = status.st_size;
  look.m_llTime =
      std::clamp(seconds, -kMostSeconds, kMostSeconds) * kNanoseconds + status.st_mtim.tv_nsec;
  look.m_nMode = status.st_mode & kModeBits;
  return look;
}
