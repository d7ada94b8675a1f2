// Turns of the links of one remote address.

#include "net/AddressLane.h"

std::uint64_t CAddressLane::TakeTurn() {
  const std::lock_guard<std::mutex> guard(m_mutex);
  return m_ullNext++;
}

bool CAddressLane::Enter(std::uint64_t turn) {
  std::unique_lock<std::mutex> lock(m_mutex);
  ++m_nWaiting;
  m_condition.wait(lock, [&] { return m_bAborted || m_ullServing == turn; });
  --m_nWaiting;
  return !m_bAborted;
}

void CAddressLane::Leave() {
  const std::lock_guard<std::mutex> guard(m_mutex);
  ServeNext();
}

void CAddressLane::Abandon(std::uint64_t turn) {
  const std::lock_guard<std::mutex> guard(m_mutex);
  if (turn == m_ullServing) {
    ServeNext();
  } else {
    m_setAbandoned.insert(turn);
  }
}

void CAddressLane::ServeNext() {
  do {
    ++m_ullServing;
  } while (m_setAbandoned.erase(m_ullServing) > 0);
  if (m_nWaiting > 0) m_condition.notify_all();
}

void CAddressLane::Abort() {
  const std::lock_guard<std::mutex> guard(m_mutex);
  m_bAborted = true;
  m_condition.notify_all();
}
