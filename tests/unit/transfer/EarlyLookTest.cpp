// What is found before it is asked for, and when it counts.

#include "transfer/EarlyLook.h"

#include "support/TestSystem.h"

namespace {

TEST(EarlyLook, WhatItFoundCountsOnceAndForASecond) {
  CScopedSystem system;
  const CTempDirectory one, other;
  CFilter filter;
  CEarlyLook look;
  const auto count = [&](const CTempDirectory& directory) {
    return look.Take(directory.Path(), filter).m_vecFiles.size();
  };
  WriteWholeFile(other / "a", "a");
  look.Begin({one.Path(), other.Path()});
  EXPECT_EQ(count(one), 0U);  // and the other one has been looked at as well
  WriteWholeFile(other / "b", "b");
  EXPECT_EQ(count(other), 1U);
  EXPECT_EQ(count(other), 2U);

  look.Begin({other.Path()});
  system.AdvanceClock(2);
  WriteWholeFile(other / "c", "c");
  EXPECT_EQ(count(other), 3U);

  look.Begin({other.Path()});
  filter.Add("b", false);
  EXPECT_EQ(count(other), 2U);
}

}  // namespace
