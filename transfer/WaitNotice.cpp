// Waits that are explained, and ended when nothing is heard.

#include "transfer/WaitNotice.h"

#include <algorithm>
#include <utility>

#include "platform/System.h"
#include "transfer/TransferObserver.h"

namespace {

constexpr int kPatienceMs = 1500;  // a longer wait is explained

}  // namespace

CWaitNotice::CWaitNotice(ITransferObserver& observer, const std::string& text)
    : CWaitNotice(observer, text, 0, nullptr, nullptr) {}

CWaitNotice::CWaitNotice(ITransferObserver& observer, const std::string& text, int limitMs,
                         std::function<std::int64_t()> heard, std::function<void()> giveUp)
    : m_nLimitMs(limitMs),
      m_heard(std::move(heard)),
      m_giveUp(std::move(giveUp)),
      m_thread([this, &observer, text] { Run(observer, text); }) {}

CWaitNotice::~CWaitNotice() {
  {
    const std::lock_guard guard(m_mutex);
    m_bOver = true;
  }
  m_changed.notify_all();
  m_thread.join();
}

void CWaitNotice::Run(ITransferObserver& observer, const std::string& text) {
  std::int64_t heard = m_nLimitMs > 0 ? m_heard() : 0;
  int waited = kPatienceMs;
  if (m_nLimitMs > 0) waited = std::min(waited, m_nLimitMs);
  {
    std::unique_lock lock(m_mutex);
    if (System().Wait(m_changed, lock, waited, [this] { return m_bOver; })) return;
    observer.OnWaiting(text);
  }
  if (m_nLimitMs <= 0 || IsOverWithin(m_nLimitMs - waited)) return;
  while (std::exchange(heard, m_heard()) != heard) {
    if (IsOverWithin(m_nLimitMs)) return;
  }
  m_giveUp();
}

bool CWaitNotice::IsOverWithin(int ms) {
  std::unique_lock lock(m_mutex);
  return System().Wait(m_changed, lock, ms, [this] { return m_bOver; });
}
