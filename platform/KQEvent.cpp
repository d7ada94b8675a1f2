// Events: a flag under a mutex, waited for through the system in force so
// that tests can shorten the waits.

#include "platform/KQEvent.h"

#include <condition_variable>
#include <mutex>

#include "platform/BriefWait.h"
#include "platform/SharedWord.h"
#include "platform/System.h"

struct CKQEvent::SState {
  std::mutex m_mutex;
  std::condition_variable m_condition;
  CSharedWord<bool> m_bSet = false;  // changed under m_mutex
  CBriefWait m_briefWait;
};

CKQEvent::CKQEvent() : m_pState(std::make_shared<SState>()) {}

CKQEvent::~CKQEvent() = default;

// Woken under the lock, the waiter would run into it and sleep once more; so
// the state is kept alive until it is woken.
void CKQEvent::SetKQEvent() {
  const std::shared_ptr<SState> state = m_pState;
  {
    const std::lock_guard<std::mutex> lock(state->m_mutex);
    state->m_bSet = true;
  }
  state->m_condition.notify_all();
}

void CKQEvent::ResetKQEvent() {
  const std::lock_guard<std::mutex> lock(m_pState->m_mutex);
  m_pState->m_bSet = false;
}

int CKQEvent::Wait(int ms) {
  if (ms > 0 && m_pState->m_briefWait.Try([this] { return m_pState->m_bSet.Load(); })) return 0;
  std::unique_lock<std::mutex> lock(m_pState->m_mutex);
  const bool set =
      System().Wait(m_pState->m_condition, lock, ms, [this] { return m_pState->m_bSet.Load(); });
  return set ? 0 : kWaitTimeout;
}
