// Threads, signals, standard streams and the calendar of the POSIX system.

#include <gtest/gtest.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

#include "platform/KQEvent.h"
#include "platform/System.h"
#include "platform/TimeConvert.h"

namespace {

constexpr int kPatienceMilliseconds = 10000;

TEST(PosixSystem, ThreadsBlockSignalsAndAFailureEndsOnlyTheThread) {
  static sigset_t inThread;
  CKQEvent done;
  ASSERT_TRUE(System().StartThread([&done] {
    pthread_sigmask(SIG_BLOCK, nullptr, &inThread);
    done.SetKQEvent();
    throw std::runtime_error("a worker's failure");
  }));
  ASSERT_EQ(done.Wait(kPatienceMilliseconds), 0);
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
  System().WriteStandard(true, "kept\n");
  char kept[16] = {};
  EXPECT_EQ(read(ends[0], kept, sizeof kept), 5);
  close(ends[0]);

  System().WriteStandard(true, "lost\n");  // the signal's default ends the process

  dup2(saved, STDERR_FILENO);
  close(saved);
  sigset_t pending;
  sigpending(&pending);
  EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);
}

TEST(PosixSystem, TimeTextFollowsTheLocalZone) {
  setenv("TZ", "UTC0", 1);
  tzset();
  EXPECT_EQ(CTimeConvert::ConvertTimeToString(1700000001), "2023-11-14_22-13-21");
  EXPECT_EQ(CTimeConvert::ConvertTimeToString(253402300800), "10000-01-01_00-00-00");
  setenv("TZ", "LOC-05:30", 1);
  tzset();
  EXPECT_EQ(CTimeConvert::ConvertTimeToString(0), "1970-01-01_05-30-00");
  EXPECT_NEAR(static_cast<double>(CTimeConvert::GetCurTime()), static_cast<double>(time(nullptr)),
              2.0);
}

}  // namespace
