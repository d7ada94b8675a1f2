// Threads, signals, sleep and standard streams of the POSIX system.

#include <signal.h>
#include <unistd.h>

#include <stdexcept>

#include "platform/KQEvent.h"
#include "platform/System.h"

namespace {

TEST(PosixSystem, ThreadsBlockSignalsAndAFailureEndsOnlyTheThread) {
  static sigset_t inThread;
  CKQEvent done;
  ASSERT_TRUE(System().StartThread([&done] {
    pthread_sigmask(SIG_BLOCK, nullptr, &inThread);
    done.SetKQEvent();
    throw std::runtime_error("a worker's failure");
  }));
  ASSERT_EQ(done.Wait(60000), 0);
  for (const int signal : {SIGPIPE, SIGXFSZ, SIGALRM, SIGTERM, SIGINT, SIGHUP}) {
    EXPECT_EQ(sigismember(&inThread, signal), 1) << signal;
  }
  sigset_t inCaller;
  pthread_sigmask(SIG_BLOCK, nullptr, &inCaller);
  EXPECT_EQ(sigismember(&inCaller, SIGTERM), 0);
}

TEST(PosixSystem, PrintingIntoABrokenPipeRaisesNoSignal) {
  int ends[2] = {};
  ASSERT_EQ(pipe(ends), 0);
  const int saved = dup(STDERR_FILENO);
  dup2(ends[1], STDERR_FILENO);
  close(ends[1]);
  close(ends[0]);
  System().WriteStandard(true, "lost\n");  // the signal's default ends the process
  dup2(saved, STDERR_FILENO);
  close(saved);
  sigset_t pending;
  sigpending(&pending);
  EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
}

}  // namespace
