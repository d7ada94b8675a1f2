#pragma once

#include <cstdint>
#include <mutex>

#include "platform/ThreadGate.h"
#include "session/DurableUpload.h"
#include "session/TransClient.h"
#include "session/UploadReport.h"

/// What a session has beyond the members that hosts see: it grows without
/// changing the size of the class.
struct CTransClient::SState {
  CDurableUpload m_durable;            // delivery thread; idle unless the server is durable
  KQLonglong m_llLostPos = INT64_MAX;  // delivery thread; of the open file the first byte that
                                       // could not be stored
  SUploadReport m_upload;              // delivery thread; stopping, when there is none

  CThreadGate m_senderGate;  // senders keep the state and leave its gate last

  std::mutex m_runMutex;             // guards the change of both counters, and
                                     // m_nTransType where a run ends
  std::uint64_t m_ullLinkEpoch = 0;  // guarded; moves on with every ResetForLink
  std::uint64_t m_ullRun = 0;        // guarded; number of the newest run
};
