// Termination requests as POSIX signals: blocked in every thread and fetched
// by one, so that no code ever runs inside a signal handler.

#include "programs/Termination.h"

#include <unistd.h>

#include <csignal>

static_assert(kInterruptSignal == SIGINT && kTerminateSignal == SIGTERM);

namespace {

sigset_t TerminationSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  return set;
}

}  // namespace

void HoldTermination() {
  const sigset_t set = TerminationSignals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
}

int WaitForTermination() {
  const sigset_t set = TerminationSignals();
  int received = 0;
  while (sigwait(&set, &received) != 0) {
  }
  return received;
}

void RequestTermination() {
  kill(getpid(), SIGTERM);
}
