#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "platform/ThreadGate.h"
#include "session/ChunksAhead.h"
#include "session/ConfirmGroup.h"
#include "session/DurableUpload.h"
#include "session/TransClient.h"
#include "session/UploadReport.h"

/// What a session has beyond the members that hosts see: it grows without
/// changing the size of the class.
struct CTransClient::SState {
  CDurableUpload m_durable;            // delivery thread; idle unless the server is durable
  CConfirmGroup m_group;               // delivery thread; as well
  CChunksAhead m_ahead;                // delivery thread
  KQLonglong m_llLostPos = INT64_MAX;  // delivery thread; of the open file the first byte that
                                       // could not be stored
  std::string m_strLogLines;           // guarded by m_pLogLock; not yet written
  SUploadReport m_upload;              // delivery thread; stopping, when there is none

  CThreadGate m_senderGate;  // senders keep the state and leave its gate last

  std::mutex m_runMutex;             // guards the change of both counters, and
                                     // m_nTransType where a run ends
  std::uint64_t m_ullLinkEpoch = 0;  // guarded; moves on with every ResetForLink
  std::uint64_t m_ullRun = 0;        // guarded; number of the newest run

  // A sender stays for the next run of its link: a client that fetches many
  // files asks for the next one as soon as it has heard of the end of one.
  std::condition_variable m_nextRun;    // for the sender that stayed
  bool m_bSenderStays = false;          // guarded by m_runMutex; one waits, or is about to
  int m_nWaiters = 0;                   // guarded by m_runMutex; for all senders to end
  std::shared_ptr<SSendRun> m_pHanded;  // guarded by m_runMutex; for whoever waits
};
