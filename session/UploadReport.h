#pragma once

#include <cstdint>

#include "net/TransferFacts.h"

/// The upload that a session is receiving, as the server's hooks hear of it.
/// Used by the delivery thread, and by whoever stops the server once there is
/// none.
struct SUploadReport {
  bool m_bRunning = false;     // begun, and its end not told
  bool m_bRefused = false;     // MayStore said no
  bool m_bLeaving = false;     // the client only wanted to take its leave
  std::int64_t m_llBegan = 0;  // ms, steady
  std::int64_t m_llAskAt = 0;  // MayStore is asked once so many bytes are stored
  STransferFacts m_facts;
};
