// Termination requests as POSIX signals: blocked in every thread and fetched
// by one, so that no code ever runs inside a signal handler.

#include "programs/Termination.h"

#include <unistd.h>

#include <csignal>

static_assert(kInterruptSignal == SIGINT && kTerminateSignal == SIGTERM);
static_assert(kHangUpSignal == SIGHUP && kShowSignal == SIGUSR1);

namespace {

sigset_t g_held;  // constant once main has started threads

void Hold(int signal) {
  sigaddset(&g_held, signal);
  pthread_sigmask(SIG_BLOCK, &g_held, nullptr);
}

// One that is ignored would be fetched all the same, once it is blocked.
bool IsIgnored(int signal) {
  struct sigaction action = {};
  return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

}  // namespace

void HoldTermination() {
  sigemptyset(&g_held);
  Hold(SIGINT);
  Hold(SIGTERM);
  std::signal(SIGPIPE, SIG_IGN);
}

void HoldMoreRequests() {
  if (!IsIgnored(SIGHUP)) Hold(SIGHUP);
  Hold(SIGUSR1);
}

int WaitForTermination() {
  int received = 0;
  while (sigwait(&g_held, &received) != 0) {
  }
  return received;
}

void RequestTermination() {
  kill(getpid(), SIGTERM);
}
