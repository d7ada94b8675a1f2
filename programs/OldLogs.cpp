// Old logs: found by their names, which begin with whose they are and end with
// when they were begun.

#include "programs/OldLogs.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "platform/Confinement.h"
#include "platform/PathBytes.h"
#include "platform/System.h"
#include "programs/Directories.h"

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kMostLogs = 10000;
constexpr std::int64_t kDaySeconds = 86400;
constexpr int kDayMs = 86400000;

// "0" stands for any digit.
bool HasForm(std::string_view text, std::string_view form) {
  return std::equal(text.begin(), text.end(), form.begin(), form.end(), [](char c, char wanted) {
    return wanted == '0' ? c >= '0' && c <= '9' : c == wanted;
  });
}

bool IsAddress(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789.") == std::string_view::npos;
}

bool IsLog(std::string_view name, ELogs logs) {
  const std::size_t line = name.find_last_of('_');
  if (line == std::string_view::npos) return false;
  if (logs == ELogs::kClient) {
    const std::string_view time = name.substr(line + 1);
    return name.starts_with("ServiceClient") && HasForm(time, std::string(time.size(), '0')) &&
           time.size() >= 9;
  }
  constexpr std::string_view kTime = "0000-00-00_00-00-00";
  if (name.size() <= kTime.size() + 1 || !HasForm(name.substr(name.size() - kTime.size()), kTime)) {
    return false;
  }
  const std::string_view whose = name.substr(0, name.size() - kTime.size() - 1);
  return name[whose.size()] == '_' && (whose == "KQFileTransServer" || IsAddress(whose));
}

// The text behind it sorts by time.
std::string_view TimeIn(std::string_view name, ELogs logs) {
  const std::size_t line = name.find_last_of('_');
  return name.substr(logs == ELogs::kClient ? line : name.find_last_of('_', line - 1));
}

std::int64_t AgeSeconds(const fs::path& path, std::error_code& error) {
  const auto written = fs::last_write_time(path, error);
  if (error) return 0;
  const auto age = fs::file_time_type::clock::now() - written;
  return std::chrono::duration_cast<std::chrono::seconds>(age).count();
}

}  // namespace

void RemoveOldLogs(const std::string& directory, ELogs logs, int days) {
  std::vector<std::string> names;
  std::error_code error;
  for (fs::directory_iterator entry(PathOf(directory), error), end; !error && entry != end;
       entry.increment(error)) {
    std::string name = BytesOf(entry->path().filename());
    if (IsLog(name, logs)) names.push_back(std::move(name));
  }
  std::sort(names.begin(), names.end(), [logs](const std::string& a, const std::string& b) {
    return TimeIn(a, logs) < TimeIn(b, logs);
  });
  // Many calls a day leave many logs: those of young names need no look.
  const std::string young = "_" + std::to_string(System().WallSeconds() - days * kDaySeconds);
  std::size_t tooMany = names.size() - std::min(names.size(), kMostLogs);
  for (const std::string& name : names) {
    const bool isYoung = days == 0 || (logs == ELogs::kClient && TimeIn(name, logs) > young);
    if (isYoung && tooMany == 0) return;
    const fs::path path = PathOf(directory) / PathOf(name);
    std::error_code ignored;
    if (!fs::is_regular_file(fs::symlink_status(path, ignored))) continue;
    const bool isOld = days > 0 && AgeSeconds(path, ignored) > days * kDaySeconds;
    if (isOld || tooMany > 0) fs::remove(path, ignored);
    if (tooMany > 0) --tooMany;
  }
}

void KeepServerLogsFresh(const std::string& directory, int days, bool confined) {
  RemoveOldLogs(directory, ELogs::kServer, days);
  std::thread([directory, days, confined] {
    SConfinement confinement;
    confinement.m_strLogDirectory = DirectoryForLibrary(directory);
    confinement.m_bRemoveLogs = true;
    if (confined && !ConfineProcess(confinement).empty()) return;
    for (;;) {
      System().Sleep(kDayMs);
      RemoveOldLogs(directory, ELogs::kServer, days);
    }
  }).detach();
}
