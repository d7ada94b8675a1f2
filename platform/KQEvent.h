#pragma once

#include <memory>

#include "KQFileTransServiceExport.h"

/// Result of CKQEvent::Wait when the time passed.
constexpr int kWaitTimeout = 258;

/// A flag that threads wait for. Stays signalled until it is reset.
///
/// Threads: every operation from any thread.
class KQFT_API CKQEvent {
 public:
  CKQEvent();
  CKQEvent(const CKQEvent&) = delete;
  CKQEvent& operator=(const CKQEvent&) = delete;
  virtual ~CKQEvent();

  /// The waiter may destroy the event while this call returns.
  void SetKQEvent();
  void ResetKQEvent();

  /// Waits until the event is signalled, at most `ms` milliseconds.
  /// @return 258 when the time passed, 0 when signalled.
  int Wait(int ms);

 private:
  struct SState;
  const std::shared_ptr<SState> m_pState;
};
