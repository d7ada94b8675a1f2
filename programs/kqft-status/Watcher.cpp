// What the status files say, and how long ago they changed.
//
// Only a file that was there before the first look is judged by its time, since
// clocks of machines differ; from then on it is as old as the time since it
// changed.

#include "programs/kqft-status/Watcher.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <memory>
#include <utility>

#include "platform/PathBytes.h"
#include "platform/System.h"

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kMostBytes = std::size_t{4} << 20;
constexpr std::int64_t kSampleMs = 15000;
constexpr double kMsPerSecond = 1000;

// A server is late when it misses a few of its times, gone when it misses many.
constexpr int kLateTimes = 3, kGoneTimes = 12;
constexpr double kSoonestLate = 10, kSoonestGone = 60;

// "" or why not. Opening hangs on nothing, and what is read has a bound.
std::string Read(const std::string& path, std::string& content, bool& missing) {
  std::unique_ptr<ISystemFile> file;
  const ESystemError error = System().OpenFile(path, EOpenMode::kRead, file);
  missing = error == ESystemError::kNotFound;
  if (error == ESystemError::kAccess) return "it may not be read";
  if (error == ESystemError::kNotRegular) return "it is no file";
  if (error != ESystemError::kNone) return "it cannot be opened";
  SFileStatus status;
  if (System().QueryFile(path, status) != ESystemError::kNone) return "it cannot be read";
  if (status.m_llSize > static_cast<std::int64_t>(kMostBytes))
    return "it is longer than any status file";
  content.resize(static_cast<std::size_t>(status.m_llSize) + 1);
  std::size_t done = 0;
  for (;;) {
    const SReadPart part{content.data() + done, content.size() - done};
    std::int64_t bytes = 0;
    if (file->ReadAt(&part, 1, static_cast<std::int64_t>(done), bytes) != ESystemError::kNone) {
      return "it cannot be read";
    }
    done += static_cast<std::size_t>(bytes);
    if (bytes == 0) break;
    if (done > kMostBytes) return "it is longer than any status file";
    if (done == content.size()) content.resize(2 * done);  // it was another one meanwhile
  }
  content.resize(done);
  return "";
}

std::int64_t AgeMs(const std::string& path) {
  std::error_code error;
  const auto written = fs::last_write_time(PathOf(path), error);
  if (error) return 0;
  const auto age = fs::file_time_type::clock::now() - written;
  return std::max<std::int64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(age).count(),
                                0);
}

EServerState StateOf(const SServerView& view) {
  if (view.m_facts.m_bEnded) return EServerState::kEnded;
  const double every = view.m_facts.m_nEverySeconds;
  if (view.m_dAgeSeconds > std::max(kGoneTimes * every, kSoonestGone)) return EServerState::kGone;
  if (view.m_dAgeSeconds > std::max(kLateTimes * every, kSoonestLate)) return EServerState::kLate;
  return EServerState::kUp;
}

void AddSample(SServerView& view, std::int64_t now) {
  std::deque<SSample>& samples = view.m_samples;
  while (!samples.empty() && samples.front().m_llTimeMs < now - kHistoryMs) samples.pop_front();
  if (view.m_state != EServerState::kUp) return;
  if (!samples.empty() && now - samples.back().m_llTimeMs < kSampleMs) return;
  samples.push_back({now, view.m_facts.m_llBytesUp, view.m_facts.m_llBytesDown});
}

}  // namespace

CWatcher::CWatcher(const std::vector<std::string>& files)
    : m_vecFiles(files.size()), m_vecLooked(files.size()) {
  for (std::size_t i = 0; i < files.size(); ++i) m_vecLooked[i].m_strFile = files[i];
}

void CWatcher::Look() {
  const std::int64_t now = System().SteadyMilliseconds();
  for (std::size_t i = 0; i < m_vecFiles.size(); ++i) {
    LookAt(m_vecFiles[i], m_vecLooked[i], now);
    AddSample(m_vecLooked[i], now);
  }
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_vecViews = m_vecLooked;
  m_llNow = now;
}

void CWatcher::LookAt(SFile& file, SServerView& view, std::int64_t now) {
  std::string content;
  bool missing = false;
  view.m_strWhy = Read(view.m_strFile, content, missing);
  if (view.m_strWhy.empty() && content != file.m_strContent) {
    const bool first = file.m_llChangedMs == 0;
    file = {std::move(content), now, first ? AgeMs(view.m_strFile) : 0};
    view.m_facts = {};
    view.m_strWhy = ParseServerFacts(file.m_strContent, view.m_facts);
    if (!view.m_strWhy.empty()) file.m_strContent.clear();
  }
  view.m_dAgeSeconds =
      static_cast<double>(now - file.m_llChangedMs + file.m_llAgeThenMs) / kMsPerSecond;
  if (view.m_strWhy.empty()) {
    view.m_state = StateOf(view);
    return;
  }
  view.m_state = missing ? EServerState::kMissing : EServerState::kBroken;
  view.m_facts = {};
  file.m_strContent.clear();
}

std::vector<SServerView> CWatcher::Views(std::int64_t& now) const {
  const std::lock_guard<std::mutex> lock(m_mutex);
  now = m_llNow;
  return m_vecViews;
}
