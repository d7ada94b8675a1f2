#pragma once

#include <condition_variable>
#include <mutex>

#include "KQFileTransServiceExport.h"

/// Result of CKQEvent::Wait when the time passed.
constexpr int kWaitTimeout = 258;

/// A flag that threads wait for. Stays signalled until it is reset.
///
/// Threads: every operation from any thread.
class KQFT_API CKQEvent {
 public:
  CKQEvent() = default;
  CKQEvent(const CKQEvent&) = delete;
  CKQEvent& operator=(const CKQEvent&) = delete;
  virtual ~CKQEvent() = default;

  void SetKQEvent();
  void ResetKQEvent();

  /// Waits until the event is signalled, at most `ms` milliseconds.
  /// @return 258 when the time passed, 0 when signalled.
  int Wait(int ms);

 private:
  std::mutex m_mutex;
  std::condition_variable m_condition;
  bool m_bSet = false;  // guarded by m_mutex
};
