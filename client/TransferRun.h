#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/ChannelKeyValue.h"
#include "protocol/TransferTypes.h"

class CFileHandle;

/// What a client knows about the request that was prepared last. The mutex
/// also guards the client's m_vecKey and orders every change of the transfer
/// flags against the begin of the next run. Never held across a wait.
struct SRunBook {
  std::mutex m_mutex;
  int m_nMode = PROCESS_TYPE_NONE;  // guarded by m_mutex
  bool m_bTaken = true;             // guarded by m_mutex; a worker has taken the run
  std::size_t m_nRecord = 0;        // guarded by m_mutex; the one in hand
  std::int64_t m_llRecordSize = 0;  // guarded by m_mutex; of that one
  std::int64_t m_llBefore = 0;      // guarded by m_mutex; bytes done when it was begun
};

/// One worker's transfer, on the worker's stack.
///
/// A second request can be accepted while a worker still runs. The old worker
/// is then superseded: it works on in its own copy of the records and in its
/// own file, notices, and leaves without touching the flags of the new run.
///
/// Threads: the worker only.
class CTransferRun {
 public:
  CTransferRun();
  CTransferRun(const CTransferRun&) = delete;
  CTransferRun& operator=(const CTransferRun&) = delete;
  ~CTransferRun();

  /// The run that the calling thread carries out; null for other threads.
  static CTransferRun* OfThread();

  std::uint64_t m_ullNumber = 0;
  std::vector<Channel_Key_Value> m_vecKey;
  std::size_t m_nRecord = 0;             ///< the one that is sent
  std::shared_ptr<CFileHandle> m_pFile;  ///< the file being sent or received
};
