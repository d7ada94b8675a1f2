// Event queue: hosts hear of a server by asking, so that nothing of theirs runs
// on its threads.

#include "bindings/c/EventQueue.h"

#include <algorithm>
#include <utility>

#include "net/NetWorkManageEx.h"
#include "platform/System.h"

namespace {

constexpr int kOneWaitMs = 60000;

}  // namespace

void CEventQueue::Add(std::int32_t kind, const STransferFacts& facts) {
  const std::lock_guard lock(m_mutex);
  if (m_events.size() >= m_nRoom) {
    ++m_llLost;
    return;
  }
  SServerEvent event;
  event.m_nKind = kind;
  event.m_nCode = facts.m_nResult;
  event.m_strAddress = CNetWorkManageEx::TransIP(facts.m_nIP);
  event.m_nPort = facts.m_nPort;
  event.m_strPath = facts.m_strPath;
  event.m_llBytes = facts.m_llBytes;
  event.m_llMilliseconds = facts.m_llMilliseconds;
  event.m_llLost = std::exchange(m_llLost, 0);
  m_events.push_back(std::move(event));
  m_changed.notify_all();
}

void CEventQueue::Close() {
  const std::lock_guard lock(m_mutex);
  m_bClosed = true;
  m_changed.notify_all();
}

bool CEventQueue::Next(int milliseconds, SServerEvent& event) {
  std::unique_lock lock(m_mutex);
  const auto hasEnd = [this] { return m_bClosed || !m_events.empty(); };
  do {
    const int wait = milliseconds < 0 ? kOneWaitMs : milliseconds;
    System().Wait(m_changed, lock, wait, hasEnd);
  } while (milliseconds < 0 && !hasEnd());
  if (m_events.empty()) return false;
  event = std::move(m_events.front());
  m_events.pop_front();
  return true;
}
