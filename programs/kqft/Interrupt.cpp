// Ctrl-C: one thread waits for requests to end and keeps count.

#include "programs/kqft/Interrupt.h"

#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <thread>

#include "platform/System.h"
#include "programs/ExitStatus.h"
#include "programs/Termination.h"

namespace {

// Never destroyed: the listening thread lives as long as the process.
struct SInterrupts {
  std::mutex m_mutex;
  std::condition_variable m_changed;
  int m_nScopes = 0;  // guarded by m_mutex
  int m_nStatus = 0;  // guarded by m_mutex; exit status once a request came
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
    if (state.m_nScopes == 0 || state.m_nStatus != 0) std::_Exit(status);
    state.m_nStatus = status;
    state.m_changed.notify_all();
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

void InterruptibleSleep(int milliseconds) {
  SInterrupts& state = Interrupts();
  std::unique_lock lock(state.m_mutex);
  System().Wait(state.m_changed, lock, milliseconds, [&] { return state.m_nStatus != 0; });
}

CInterruptScope::CInterruptScope() {
  const std::lock_guard guard(Interrupts().m_mutex);
  ++Interrupts().m_nScopes;
}

CInterruptScope::~CInterruptScope() {
  const std::lock_guard guard(Interrupts().m_mutex);
  --Interrupts().m_nScopes;
}
