// Threads, signals, sleep and standard streams of the POSIX system.

#include <signal.h>

#include <stdexcept>

#include "platform/KQEvent.h"
#include "platform/System.h"

namespace {

TEST(PosixSystem, ThreadsBlockSignalsAndAFailureEndsOnlyTheThread) {
  static sigset_t inThread;
  CKQEvent done;
  const ESystemError error = System().StartThread([&done] {
    pthread_sigmask(SIG_BLOCK, nullptr, &inThread);
    done.SetKQEvent();
    throw std::runtime_error("a worker's failure");
  });
  ASSERT_EQ(error, ESystemError::kNone);
  ASSERT_EQ(done.Wait(60000), 0);
  for (const int signal : {SIGPIPE, SIGXFSZ, SIGALRM, SIGTERM, SIGINT, SIGHUP}) {
    EXPECT_EQ(sigismember(&inThread, signal), 1) << signal;
  }
  sigset_t inCaller;
  pthread_sigmask(SIG_BLOCK, nullptr, &inCaller);
  EXPECT_EQ(sigismember(&inCaller, SIGTERM), 0);
}

}  // namespace
