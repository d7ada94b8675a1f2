#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "client/KQFileBulkTransfer.h"
#include "protocol/ResultCodes.h"

class CFileHandle;

constexpr int kBulkStepMs = 50;      // how late a stop is seen
constexpr int kReadyPauseMs = 1;     // before a file is tried again that was refused
constexpr int kMostRefusals = 3000;  // of one kind that passes, in a row

/// A file that is fetched, from when it is opened until it is closed.
struct CKQFileBulkTransfer::STarget : STargetFile {
  std::size_t m_nRecord = 0;
  std::string m_strName;      // on the server
  std::int64_t m_llSize = 0;  // as the record says
  bool m_bAsked = false;      // while the end of the one before was not dealt with
  int m_nRefusals = 0;
};

/// What a bulk transfer has on its way. Copies of a client share it.
///
/// The mutex is never held across a wait, a file operation or a send.
struct CKQFileBulkTransfer::SBulk {
  /// A file whose 2502 has not been answered.
  struct SOnWay {
    std::uint64_t m_ullRun = 0;  // 0: nobody wants to know its result
    std::size_t m_nRecord = 0;
    bool m_bAnnounced = false;  // its 2500 has been answered
    bool m_bEnded = false;      // its 2502 was sent, or is about to be
    int m_nResult = RESULT_OK;
  };

  std::mutex m_mutex;
  std::condition_variable m_changed;    // for the worker
  bool m_bWorks = false;                // guarded by m_mutex; a worker has begun, and not left
  std::uint64_t m_ullRun = 0;           // guarded by m_mutex; of the worker
  std::uint64_t m_ullEvents = 0;        // guarded by m_mutex; whatever came of files on their way
  bool m_bSilent = false;               // guarded by m_mutex; an answer is overdue
  bool m_bBroken = false;               // guarded by m_mutex; the link's answers tell nothing more
  std::deque<SOnWay> m_onWay;           // guarded by m_mutex; uploads, the oldest first
  std::size_t m_nMostOnWay = 0;         // guarded by m_mutex; the worker waits until no more are
  std::vector<std::size_t> m_vecAgain;  // guarded by m_mutex; uploads to be tried again

  std::deque<STarget> m_ready;       // guarded by m_mutex; opened, not asked for
  std::optional<STarget> m_current;  // guarded by m_mutex; asked for, its end not told
  bool m_bAnswered = false;          // guarded by m_mutex; its 2505, with 1
  bool m_bDropped = false;           // guarded by m_mutex; nobody wants it any more
  bool m_bPause = false;             // guarded by m_mutex; before the next one is asked for
  int m_nResult = RESULT_OK;         // guarded by m_mutex; the current one's
  std::int64_t m_llNext = 0;         // guarded by m_mutex; where its next piece begins
  std::vector<STarget> m_vecOver;    // guarded by m_mutex; for the worker, to be closed
};
