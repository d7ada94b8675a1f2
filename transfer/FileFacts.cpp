// Facts of local files: size, time, permission bits.

#include "transfer/FileFacts.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <limits>

#include "platform/FileLook.h"

namespace fs = std::filesystem;

namespace {

using std::chrono::nanoseconds;
using std::chrono::seconds;
using FileClock = std::chrono::file_clock;

constexpr std::int64_t kNanoseconds = 1000000000;

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

std::string ReadFileFacts(const std::string& path, SFileFacts& facts) {
  std::error_code error;
  const SFileLook look = LookAtFile(path, error);
  if (error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory) {
    return "no such file";
  }
  if (error) return error.message();
  if (!look.m_bRegular) return "not a file";
  facts.m_llSize = look.m_llSize;
  facts.m_llTime = look.m_llTime;
  facts.m_nMode = look.m_nMode;
  return "";
}

std::string SetFileFacts(const std::string& path, const SFileFacts& facts) {
  std::error_code error;
  fs::last_write_time(path, ToFileTime(facts.m_llTime), error);
  if (!error) fs::permissions(path, static_cast<fs::perms>(facts.m_nMode) & fs::perms::all, error);
  return error ? error.message() : "";
}
