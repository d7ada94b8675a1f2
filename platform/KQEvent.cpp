// Events: a flag under a mutex, waited for through the system in force so
// that tests can shorten the waits.

#include "platform/KQEvent.h"

#include "platform/System.h"

void CKQEvent::SetKQEvent() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_bSet = true;
  // Under the lock: the waiter may destroy the event as soon as it has it.
  m_condition.notify_all();
}

void CKQEvent::ResetKQEvent() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_bSet = false;
}

int CKQEvent::Wait(int ms) {
  std::unique_lock<std::mutex> lock(m_mutex);
  return System().Wait(m_condition, lock, ms, [this] { return m_bSet; }) ? 0 : kWaitTimeout;
}
