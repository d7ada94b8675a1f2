#pragma once

#include <condition_variable>
#include <mutex>

/// Counts detached workers so that their object outlives them.
///
/// The starter enters before the thread starts (and leaves again when it did
/// not start); the thread holds the gate by shared_ptr and leaves as its last
/// act; the object's destructor waits until the gate is empty.
class CThreadGate {
 public:
  void Enter();

  /// Without an Enter before it does nothing.
  void Leave();
  void WaitEmpty();

 private:
  std::mutex m_mutex;
  std::condition_variable m_condition;
  int m_nInside = 0;  // guarded by m_mutex
};
