// Status files: what the hooks have counted, looked at every few seconds.

#include "programs/kqft-server/StatusFiles.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <utility>

#include "platform/Confinement.h"
#include "platform/Identity.h"
#include "platform/PathBytes.h"
#include "platform/System.h"
#include "programs/Directories.h"
#include "programs/kqft-server/StatusText.h"

namespace fs = std::filesystem;

namespace {

constexpr int kMsPerSecond = 1000;
constexpr int kStartMs = 10000;
constexpr int kLastWriteMs = 100;

std::string Host() {
  const std::string name = UserAtHost();
  return name.substr(name.find('@') + 1);
}

std::string Today() {
  SCalendarTime time;
  System().LocalTime(System().WallSeconds(), time);
  const auto digits = [](int number) {
    return (number < 10 ? "-0" : "-") + std::to_string(number);
  };
  return std::to_string(time.m_nYear) + digits(time.m_nMonth) + digits(time.m_nDay);
}

// "" or why it was not done. Whoever reads sees the former text or this one.
std::string Replace(const fs::path& path, const std::string& text) {
  fs::path fresh = path;
  fresh += ".new";
  errno = 0;
  std::ofstream file(fresh, std::ios::binary | std::ios::trunc);
  file << text;
  file.close();
  const int why = errno;
  std::error_code error;
  if (file.fail()) {
    fs::remove(fresh, error);
    return why != 0 ? std::strerror(why) : "cannot be written";
  }
  fs::rename(fresh, path, error);
  return error ? error.message() : "";
}

}  // namespace

// Bytes a second since the look before.
class CStatusFiles::CRates {
 public:
  void Look(SServerStatus& status) {
    std::map<std::pair<unsigned, int>, std::int64_t> links;
    const std::int64_t passed = std::max<std::int64_t>(status.m_llNowMs - m_llTime, 1);
    const auto rate = [&](std::int64_t bytes, std::int64_t before) {
      return std::max<std::int64_t>(bytes - before, 0) * kMsPerSecond / passed;
    };
    for (const CTraffic::SLink& link : status.m_traffic.m_vecLinks) {
      std::int64_t bytes = link.m_totals.m_llBytesUp + link.m_totals.m_llBytesDown;
      for (const auto& [name, file] : link.m_mapRunning) bytes += file.m_llBytes;
      const std::pair<unsigned, int> key(link.m_facts.m_nIP, link.m_facts.m_nPort);
      links[key] = bytes;
      const auto before = m_mapLinks.find(key);
      status.m_vecRates.push_back(rate(bytes, before == m_mapLinks.end() ? 0 : before->second));
    }
    const STrafficCounts& counts = status.m_traffic.m_counts;
    status.m_llRateUp = rate(counts.m_llBytesUp, m_llBytesUp);
    status.m_llRateDown = rate(counts.m_llBytesDown, m_llBytesDown);
    m_llTime = status.m_llNowMs;
    m_llBytesUp = counts.m_llBytesUp;
    m_llBytesDown = counts.m_llBytesDown;
    m_mapLinks = std::move(links);
  }

 private:
  std::int64_t m_llTime = System().SteadyMilliseconds();
  std::int64_t m_llBytesUp = 0;
  std::int64_t m_llBytesDown = 0;
  std::map<std::pair<unsigned, int>, std::int64_t> m_mapLinks;
};

struct CStatusFiles::SState {
  SState(const SServerOptions& options, std::shared_ptr<const CTraffic> traffic)
      : m_strDirectory(options.m_strStatusDirectory), m_pTraffic(std::move(traffic)) {
    m_status.m_strHost = Host();
    m_status.m_strAddress = options.m_strListenAddress;
    m_status.m_strDirectory = DirectoryForLibrary(options.m_strDirectory);
    m_status.m_started = std::chrono::system_clock::now();
    m_status.m_nEverySeconds = options.m_nStatusSeconds;
    m_status.m_strDay = Today();
  }

  void Run(bool confined);
  void Write(int port, bool ended);

  const std::string m_strDirectory;
  const std::shared_ptr<const CTraffic> m_pTraffic;
  const std::int64_t m_llStarted = System().SteadyMilliseconds();

  // Used by the thread, once it runs.
  SServerStatus m_status;  // what stays, and what was told last
  CRates m_rates;
  bool m_bFailing = false;

  std::mutex m_mutex;
  std::condition_variable m_changed;
  std::string m_strWhyNot;  // guarded by m_mutex
  bool m_bRuns = false;     // guarded by m_mutex
  bool m_bReady = false;    // guarded by m_mutex; it can do no more than it is to
  bool m_bEnding = false;   // guarded by m_mutex
  int m_nPort = 0;          // guarded by m_mutex; 0: the server has not begun

  std::function<std::string()> m_probe;  // constant once there is a port
};

void CStatusFiles::SState::Run(bool confined) {
  // Rights as for data, but for the process: its other threads get theirs
  // later. Where only whole processes can be confined this one stays as it is,
  // as the thread does that removes logs.
  SConfinement confinement;
  confinement.m_strDataDirectory = DirectoryForLibrary(m_strDirectory);
  confinement.m_bRemoveLogs = true;
  confinement.m_bRemoveDirectories = false;
  const std::string why = confined ? ConfineProcess(confinement) : "";

  std::unique_lock<std::mutex> lock(m_mutex);
  m_strWhyNot = why;
  m_bReady = true;
  m_changed.notify_all();
  int wait = INT_MAX;
  while (why.empty()) {
    System().Wait(m_changed, lock, wait,
                  [&] { return m_bEnding || (m_nPort != 0 && wait == INT_MAX); });
    const bool ending = m_bEnding;
    const int port = m_nPort;
    wait = m_status.m_nEverySeconds * kMsPerSecond;
    lock.unlock();
    if (port != 0) Write(port, ending);
    lock.lock();
    if (ending) break;
  }
  m_bRuns = false;
  m_changed.notify_all();
}

void CStatusFiles::SState::Write(int port, bool ended) {
  SServerStatus& status = m_status;
  const std::string today = Today();
  if (today != status.m_strDay) {  // what came since the last look counts as today's
    status.m_before = status.m_traffic.m_counts;
    status.m_strDay = today;
  }
  status.m_nPort = port;
  status.m_bEnded = ended;
  status.m_now = std::chrono::system_clock::now();
  status.m_llNowMs = System().SteadyMilliseconds();
  status.m_llRanMs = status.m_llNowMs - m_llStarted;
  status.m_traffic = m_pTraffic->Snapshot();
  status.m_room = RoomIn(status.m_strDirectory);
  status.m_strProbe = m_probe();
  status.m_vecRates.clear();
  m_rates.Look(status);

  const fs::path directory = PathOf(m_strDirectory);
  std::string why = Replace(directory / "status.json", StatusJson(status));
  if (why.empty()) why = Replace(directory / "kqft.prom", StatusMetrics(status));
  if (why.empty() == !m_bFailing) return;
  m_bFailing = !why.empty();
  System().WriteStandard(true, "kqft-server: status directory " + m_strDirectory + ": " +
                                   (m_bFailing ? why : "is written again") + "\n");
}

CStatusFiles::CStatusFiles(const SServerOptions& options, std::shared_ptr<const CTraffic> traffic)
    : m_pState(std::make_shared<SState>(options, std::move(traffic))) {}

CStatusFiles::~CStatusFiles() {
  Close(kLastWriteMs);
}

std::string CStatusFiles::Start(bool confined) {
  SState& state = *m_pState;
  std::error_code ignored;
  fs::create_directories(PathOf(state.m_strDirectory), ignored);
  if (std::string why = WhyUnusable(state.m_strDirectory); !why.empty()) return why;
  std::unique_lock<std::mutex> lock(state.m_mutex);
  state.m_bRuns = true;
  lock.unlock();
  const ESystemError error =
      System().StartThread([shared = m_pState, confined] { shared->Run(confined); });
  lock.lock();
  if (error != ESystemError::kNone) {
    state.m_bRuns = false;
    return "no thread for it";
  }
  if (!System().Wait(state.m_changed, lock, kStartMs, [&] { return state.m_bReady; })) {
    return "its thread does not begin";
  }
  return state.m_strWhyNot;
}

void CStatusFiles::Begin(int port, std::function<std::string()> probe) {
  const std::lock_guard<std::mutex> lock(m_pState->m_mutex);
  m_pState->m_probe = std::move(probe);
  m_pState->m_nPort = port;
  m_pState->m_changed.notify_all();
}

void CStatusFiles::Close(int milliseconds) {
  SState& state = *m_pState;
  std::unique_lock<std::mutex> lock(state.m_mutex);
  state.m_bEnding = true;
  state.m_changed.notify_all();
  System().Wait(state.m_changed, lock, milliseconds, [&] { return !state.m_bRuns; });
}
