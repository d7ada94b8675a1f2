#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>

#include "client/KQFileTransServiceClient.h"
#include "platform/HardWareCommon.h"
#include "platform/SharedWord.h"
#include "platform/ThreadGate.h"
#include "protocol/ResultCodes.h"
#include "protocol/TransferTypes.h"

constexpr int kPrepareWaitMs = 10000;       // for the answer to 2500
constexpr int kFileEndWaitMs = 30000;       // for the answer to 2502
constexpr int kRequestWaitMs = 5000;        // for the answer to 2505
constexpr int kPromptLookMs = 50;           // how late a stop is seen where it ends a wait
constexpr std::int64_t kStallSeconds = 10;  // without a byte of a file that is fetched

inline std::int64_t FileBytes(const std::string& path) {
  return static_cast<std::int64_t>(CHardWareCommon::GetFileSize(path));
}

/// What a client has beyond the members that hosts see: it grows without
/// changing the size of the class. Copies of a client share it.
///
/// The mutex guards the request that was prepared last, with the client's
/// m_vecKey, and orders every change of the transfer flags against the begin
/// of the next run. Never held across a wait.
struct CKQFileTransServiceClient::SState {
  /// Waits for an event; false after `ms`, or when a worker's transfer is stopped that must not
  /// outlast a stop.
  bool Await(const CKQFileTransServiceClient& client, CKQEvent& event, int ms) const;

  bool IsToEnd(const CKQFileTransServiceClient& client) const;

  bool m_bPrompt = false;                      // constant; a stop ends the worker's waits
  int m_nFirstStatus = RESULT_OK;              // constant; of files that are not over
  ReadHook m_readHook;                         // constant while a worker runs; may be empty
  CSharedWord<bool> m_bDeleteRefused = false;  // word; of the last answer to a deletion
  IRateLimit* m_pRateLimit = nullptr;          // constant from Init on; not owned
  CThreadGate m_gate;                          // workers keep the state and leave its gate last

  std::mutex m_mutex;
  int m_nMode = PROCESS_TYPE_NONE;  // guarded by m_mutex
  bool m_bTaken = true;             // guarded by m_mutex; a worker has taken the run
  std::size_t m_nRecord = 0;        // guarded by m_mutex; the one in hand
  std::int64_t m_llRecordSize = 0;  // guarded by m_mutex; of that one
  std::int64_t m_llBefore = 0;      // guarded by m_mutex; bytes done when it was begun

  CSharedWord<std::uint64_t> m_ullRun = 0;            // word; number of the current run
  CSharedWord<bool> m_bWriteFailed = false;           // word; received data of this file was lost
  CSharedWord<std::int64_t> m_llLostPos = INT64_MAX;  // word; nothing behind it is stored
};
