// Facts of local files: size, time, permission bits.

#include "transfer/FileFacts.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <limits>

#include "platform/PathBytes.h"

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

std::int64_t FromFileTime(fs::file_time_type time) {
  const auto whole = std::chrono::floor<seconds>(time);
  return Join(FileClock::to_sys(whole).time_since_epoch().count(),
              Rest(nanoseconds(time.time_since_epoch()).count()));
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
  const fs::file_status status = fs::status(PathOf(path), error);
  if (status.type() == fs::file_type::not_found) return "no such file";
  if (!error && !fs::is_regular_file(status)) return "not a file";
  std::uintmax_t size = 0;
  std::int64_t time = 0;
  if (!error) size = fs::file_size(PathOf(path), error);
  if (!error) time = FromFileTime(fs::last_write_time(PathOf(path), error));
  if (error == std::errc::value_too_large) {
    time = std::numeric_limits<std::int64_t>::max();  // as above
    error.clear();
  }
  if (error) return error.message();
  facts.m_llSize = static_cast<std::int64_t>(size);
  facts.m_llTime = time;
  facts.m_nMode = static_cast<unsigned>(status.permissions() & fs::perms::all);
  return "";
}

std::string SetFileFacts(const std::string& path, const SFileFacts& facts) {
  std::error_code error;
  fs::last_write_time(PathOf(path), ToFileTime(facts.m_llTime), error);
  if (!error)
    fs::permissions(PathOf(path), static_cast<fs::perms>(facts.m_nMode) & fs::perms::all, error);
  return error ? error.message() : "";
}
