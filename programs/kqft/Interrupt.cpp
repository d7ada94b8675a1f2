// Ctrl-C: one thread waits for requests to end and keeps count.

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
  int m_nStatus = 0;                  // guarded by m_mutex; exit status once a request came
};

SInterrupts& Interrupts() {
  static auto* const interrupts = new SInterrupts;
  return *interrupts;
}

void Listen() {
  SInterrupts& state = Interrupts();
  while (true) {
    const int status =
        WaitForTermination() == kInterruptSignal ? kExitInterrupted : kExitTerminated;
    const std::lock_guard guard(state.m_mutex);
    if (!state.m_onRequest || state.m_nStatus != 0) std::_Exit(status);
    state.m_nStatus = status;
    state.m_onRequest();
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
