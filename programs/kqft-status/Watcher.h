#pragma once

#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "programs/kqft-status/ServerFacts.h"

/// How a server fares, as far as its file tells.
enum class EServerState {
  kUp,
  kLate,     ///< it has missed some times to write
  kGone,     ///< for long
  kEnded,    ///< it was asked to end
  kMissing,  ///< there is no file
  kBroken,   ///< it cannot be read, or is no status file
};

/// Bytes that had moved at a moment.
struct SSample {
  std::int64_t m_llTimeMs = 0;
  std::int64_t m_llUp = 0, m_llDown = 0;
};

struct SServerView {
  std::string m_strFile;
  EServerState m_state = EServerState::kMissing;
  std::string m_strWhy;           ///< of a broken one
  double m_dAgeSeconds = 0;       ///< of what the file says
  SServerFacts m_facts;           ///< empty where there is nothing to read
  std::deque<SSample> m_samples;  ///< over the last hour, oldest first
};

constexpr std::int64_t kHistoryMs = 3600000;

/// Reads status files again and again, and remembers an hour of what was in
/// them.
///
/// Threads: Look on one thread, Views on any.
class CWatcher {
 public:
  explicit CWatcher(const std::vector<std::string>& files);

  /// Reads those that there are.
  void Look();

  /// All of it as it was at the last look. @param now as the samples' time
  std::vector<SServerView> Views(std::int64_t& now) const;

 private:
  // What is known of one file, used by Look.
  struct SFile {
    std::string m_strContent;        // as it was when it changed last
    std::int64_t m_llChangedMs = 0;  // when that was seen
    std::int64_t m_llAgeThenMs = 0;  // and how old it was then
  };

  void LookAt(SFile& file, SServerView& view, std::int64_t now);

  std::vector<SFile> m_vecFiles;
  std::vector<SServerView> m_vecLooked;  // used by Look

  mutable std::mutex m_mutex;
  std::vector<SServerView> m_vecViews;  // guarded by m_mutex
  std::int64_t m_llNow = 0;             // guarded by m_mutex
};
