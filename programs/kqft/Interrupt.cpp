// Ctrl-C and its like: one thread waits for requests and keeps count.

#include "programs/kqft/Interrupt.h"

#include <cstdlib>
#include <mutex>
#include <thread>
#include <utility>

#include "programs/ExitStatus.h"
#include "programs/Termination.h"

namespace {

// Never destroyed: the listening thread lives as long as the process.
struct SInterrupts {
  std::mutex m_mutex;
  std::function<void()> m_onRequest;  // guarded by m_mutex; of the scope that is open
  std::function<void()> m_onShow;     // guarded by m_mutex; as that
  int m_nStatus = 0;                  // guarded by m_mutex; exit status once a request came
  bool m_bHurried = false;            // guarded by m_mutex; somebody asked who may ask twice
};

SInterrupts& Interrupts() {
  static auto* const interrupts = new SInterrupts;
  return *interrupts;
}

int StatusFor(int request) {
  if (request == kInterruptSignal) return kExitInterrupted;
  return request == kHangUpSignal ? kExitHungUp : kExitTerminated;
}

void Obey(SInterrupts& state, int request) {
  const bool hurries = request != kHangUpSignal;
  if (!state.m_onRequest || (hurries && state.m_bHurried)) std::_Exit(StatusFor(request));
  state.m_bHurried = state.m_bHurried || hurries;
  if (state.m_nStatus != 0) return;
  state.m_nStatus = StatusFor(request);
  state.m_onRequest();
}

void Listen() {
  SInterrupts& state = Interrupts();
  while (true) {
    const int request = WaitForTermination();
    const std::lock_guard guard(state.m_mutex);
    if (request != kShowSignal) {
      Obey(state, request);
    } else if (state.m_onShow) {
      state.m_onShow();
    }
  }
}

}  // namespace

void StartInterrupts() {
  Interrupts();
  std::thread(&Listen).detach();
}

bool IsInterrupted() {
  const std::lock_guard guard(Interrupts().m_mutex);
  return Interrupts().m_nStatus != 0;
}

int InterruptedStatus() {
  const std::lock_guard guard(Interrupts().m_mutex);
  return Interrupts().m_nStatus;
}

CInterruptScope::CInterruptScope(std::function<void()> onRequest) {
  const std::lock_guard guard(Interrupts().m_mutex);
  Interrupts().m_onRequest = std::move(onRequest);
}

CInterruptScope::~CInterruptScope() {
  const std::lock_guard guard(Interrupts().m_mutex);
  Interrupts().m_onRequest = nullptr;
}

CShowScope::CShowScope(std::function<void()> onShow) {
  const std::lock_guard guard(Interrupts().m_mutex);
  Interrupts().m_onShow = std::move(onShow);
}

CShowScope::~CShowScope() {
  const std::lock_guard guard(Interrupts().m_mutex);
  Interrupts().m_onShow = nullptr;
}
