// The gate through which detached workers leave before their object goes.

#include "platform/ThreadGate.h"

void CThreadGate::Enter() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  ++m_nInside;
}

void CThreadGate::Leave() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  if (m_nInside > 0) --m_nInside;
  if (m_nInside == 0) m_condition.notify_all();
}

void CThreadGate::WaitEmpty() {
  std::unique_lock<std::mutex> lock(m_mutex);
  m_condition.wait(lock, [this] { return m_nInside == 0; });
}
