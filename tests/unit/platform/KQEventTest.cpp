// Events, detached threads and the gate that they leave through.

#include "platform/KQEvent.h"

#include <gtest/gtest.h>

#include "platform/KQThread.h"
#include "platform/ThreadGate.h"
#include "platform/TimeConvert.h"
#include "support/TestSystem.h"

namespace {

constexpr int kPatienceMilliseconds = 10000;

void* SetEvent(void* event) {
  static_cast<CKQEvent*>(event)->SetKQEvent();
  return nullptr;
}

TEST(KQEvent, StaysSignalledUntilReset) {
  CKQEvent event;
  EXPECT_EQ(event.Wait(0), 258);
  event.SetKQEvent();
  EXPECT_EQ(event.Wait(0), 0);
  EXPECT_EQ(event.Wait(1), 0);
  event.ResetKQEvent();
  EXPECT_EQ(event.Wait(1), 258);
}

TEST(KQEvent, TimeOutsOfAMinuteRunOnTestTime) {
  const CScopedSystem system(CFaultPlan().ClockFaster(2000));
  const std::int64_t before = CTimeConvert::GetCurTime();
  CKQEvent event;
  EXPECT_EQ(event.Wait(60000), 258);
  EXPECT_GE(CTimeConvert::GetCurTime() - before, 59);
}

TEST(KQThread, RunsDetachedFromTheObjectThatStartedIt) {
  CKQEvent event;
  EXPECT_TRUE(CKQThread().CreateKQThread(SetEvent, &event));
  EXPECT_EQ(event.Wait(kPatienceMilliseconds), 0);
}

TEST(KQThread, DoesNotCallTheFunctionWhenNoThreadCanBeHad) {
  const CScopedSystem system(CFaultPlan().NoThreads());
  CKQEvent event;
  EXPECT_FALSE(CKQThread().CreateKQThread(SetEvent, &event));
  EXPECT_EQ(event.Wait(0), 258);
}

TEST(ThreadGate, WaitsForEveryWorkerThatEntered) {
  const auto gate = std::make_shared<CThreadGate>();
  std::atomic<int> left{0};
  for (int i = 0; i < 8; ++i) {
    gate->Enter();
    ASSERT_TRUE(System().StartThread([gate, &left] {
      ++left;
      gate->Leave();
    }));
  }
  gate->WaitEmpty();
  EXPECT_EQ(left, 8);
}

}  // namespace
