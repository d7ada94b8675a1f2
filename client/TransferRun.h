#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "platform/ChannelKeyValue.h"

class CFileHandle;

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
