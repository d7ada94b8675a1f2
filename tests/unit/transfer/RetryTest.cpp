#include "transfer/Retry.h"

#include <gtest/gtest.h>

#include "support/TestSystem.h"

namespace {

TEST(Retry, EndsAfterSoManyTriesOrSoMuchTimeWithoutAGain) {
  CScopedSystem system;
  CRetry byCount(1, 0);
  EXPECT_EQ(byCount.Next(false), 1000);
  EXPECT_EQ(byCount.Next(true), 1000);
  EXPECT_EQ(byCount.Next(false), -1);
  CRetry byTime(0, 60);
  EXPECT_EQ(byTime.Next(false), 1000);
  EXPECT_EQ(byTime.Next(false), 2000);
  system.AdvanceClock(50);
  EXPECT_EQ(byTime.Next(true), 1000);
  system.AdvanceClock(50);
  for (int i = 0; i < 20; ++i) EXPECT_GT(byTime.Next(false), 0);
  EXPECT_EQ(byTime.Next(false), 30000);
  system.AdvanceClock(10);
  EXPECT_EQ(byTime.Next(false), -1);
}

}  // namespace
