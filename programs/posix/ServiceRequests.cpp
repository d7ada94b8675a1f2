// Requests to a service as POSIX signals, fetched like those of Termination.

#include "programs/ServiceRequests.h"

#include <time.h>

#include <csignal>
#include <initializer_list>

#include "programs/Termination.h"

namespace {

constexpr int kMillisecondsPerSecond = 1000;
constexpr long kNanosecondsPerMillisecond = 1000000;

}  // namespace

void HoldServiceRequests() {
  HoldTermination();
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGHUP);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

EServiceRequest WaitForServiceRequest(int milliseconds) {
  sigset_t set;
  sigemptyset(&set);
  for (const int each : {SIGHUP, SIGINT, SIGTERM}) sigaddset(&set, each);
  const timespec time = {milliseconds / kMillisecondsPerSecond,
                         milliseconds % kMillisecondsPerSecond * kNanosecondsPerMillisecond};
  const int received = sigtimedwait(&set, nullptr, &time);
  if (received == SIGHUP) return EServiceRequest::kReopen;
  return received > 0 ? EServiceRequest::kEnd : EServiceRequest::kNone;
}
