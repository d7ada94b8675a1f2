#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "net/TransferFacts.h"

/// What one link has moved.
struct SLinkTotals {
  std::int64_t m_llFilesUp = 0;  ///< of which bytes arrived, whole or not
  std::int64_t m_llBytesUp = 0;
  std::int64_t m_llFilesDown = 0;
  std::int64_t m_llBytesDown = 0;
};

/// What clients asked for that has a result.
enum class EWork { kUpload, kDownload, kDelete };

/// What has happened since the server began.
struct STrafficCounts {
  std::int64_t m_llBytesUp = 0;
  std::int64_t m_llBytesDown = 0;
  std::int64_t m_llLinks = 0;                                  ///< that came
  std::map<std::pair<EWork, int>, std::int64_t> m_mapResults;  ///< by work and code
  std::map<ERefusal, std::int64_t> m_mapRefusals;
};

/// What a server's links are doing, counted from what its hooks hear.
///
/// Threads: every operation from any thread.
class CTraffic {
 public:
  void Begin(const STransferFacts& link);

  /// @return what it has moved in all; nothing of a link that was not begun
  SLinkTotals End(const STransferFacts& link);

  /// A link that is up, and its transfers as far as they have got.
  struct SLink {
    STransferFacts m_facts;
    std::int64_t m_llSince = 0;  ///< as System().SteadyMilliseconds()
    SLinkTotals m_totals;
    std::map<std::pair<bool, std::string>, STransferFacts> m_mapRunning;  // up; by its path
  };

  /// Forgets all links. @return them
  std::vector<SLink> EndAll();

  /// A transfer is at it, or has ended.
  void Move(const STransferFacts& file, bool up, bool ended);

  /// A deletion has ended so.
  void Deleted(int result);
  void Refused(ERefusal refusal);

  /// All of it at one moment.
  struct SSnapshot {
    std::vector<SLink> m_vecLinks;
    STrafficCounts m_counts;
  };
  SSnapshot Snapshot() const;

  struct SState {
    std::size_t m_nLinks = 0;
    std::size_t m_nTransfers = 0;
    std::int64_t m_llBytes = 0;  ///< moved since the beginning, both ways
  };
  SState State() const;

 private:
  using Key = std::pair<unsigned int, int>;

  mutable std::mutex m_mutex;
  std::map<Key, SLink> m_mapLinks;  // guarded by m_mutex
  STrafficCounts m_counts;          // guarded by m_mutex
};
