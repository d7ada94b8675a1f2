// Times and modes of files: looked up by one call of the system, set by the
// standard library.

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <limits>

#include "platform/FileTimes.h"
#include "platform/posix/PosixDirectory.h"

namespace fs = std::filesystem;

namespace {

using std::chrono::nanoseconds;
using std::chrono::seconds;
using FileClock = std::chrono::file_clock;

constexpr std::int64_t kNanoseconds = 1000000000;
constexpr unsigned kModeBits = 0777;

// The clock of files counts from another year, so that either range holds
// times that the other does not: they are moved by whole seconds, and the
// ends stand for what lies behind them.
std::int64_t Join(std::int64_t whole, std::int64_t rest) {
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max() / kNanoseconds - 1;
  return std::clamp(whole, -kMost, kMost) * kNanoseconds + rest;
}

std::int64_t Rest(std::int64_t time) {
  return (time % kNanoseconds + kNanoseconds) % kNanoseconds;
}

fs::file_time_type ToFileTime(std::int64_t time) {
  const auto whole =
      std::chrono::floor<seconds>(std::chrono::sys_time<nanoseconds>(nanoseconds(time)));
  return fs::file_time_type(
      nanoseconds(Join(FileClock::from_sys(whole).time_since_epoch().count(), Rest(time))));
}

}  // namespace

SFileLook LookAtFile(const std::string& path, std::error_code& error, bool follow) {
  struct stat status {};
  error.clear();
  if ((follow ? stat : lstat)(path.c_str(), &status) == 0) return ToLook(status);
  error.assign(errno, std::generic_category());
  return SFileLook();
}

SFileLook ToLook(const struct stat& status) {
  SFileLook look;
  look.m_bRegular = S_ISREG(status.st_mode);
  look.m_llSize = status.st_size;
  look.m_llTime = Join(status.st_mtim.tv_sec, status.st_mtim.tv_nsec);
  look.m_nMode = status.st_mode & kModeBits;
  return look;
}

void SetFileTime(const fs::path& path, std::int64_t time, std::error_code& error) {
  fs::last_write_time(path, ToFileTime(time), error);
}

bool IsSameFileTime(std::int64_t a, std::int64_t b) {
  return a == b;
}

void SetFileMode(const fs::path& path, unsigned mode, std::error_code& error) {
  fs::permissions(path, static_cast<fs::perms>(mode) & fs::perms::all, error);
}
