// The wish to end, from any thread.

#include "transfer/CancelToken.h"

#include "platform/System.h"

CCancelToken::CScope::CScope(CCancelToken& token) : m_token(token) {
  const std::lock_guard guard(m_token.m_mutex);
  m_bOutermost = !m_token.m_bRunning;
  m_token.m_bRunning = true;
  if (m_bOutermost) m_token.m_bCancelled = false;
}

CCancelToken::CScope::~CScope() {
  const std::lock_guard guard(m_token.m_mutex);
  if (m_bOutermost) m_token.m_bRunning = false;
}

void CCancelToken::Cancel() {
  const std::lock_guard guard(m_mutex);
  m_bCancelled = m_bCancelled || m_bRunning;
  m_changed.notify_all();
}

bool CCancelToken::IsCancelled() const {
  const std::lock_guard guard(m_mutex);
  return m_bCancelled;
}

void CCancelToken::Sleep(int milliseconds) {
  std::unique_lock lock(m_mutex);
  System().Wait(m_changed, lock, milliseconds, [this] { return m_bCancelled; });
}
