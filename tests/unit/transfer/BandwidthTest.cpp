// Rates and timetables, and a bucket that keeps to them.

#include "transfer/Bandwidth.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>

#include "platform/System.h"

namespace {

// Waits take no time, and just as long as they should.
class CClock : public CForwardingSystem {
 public:
  CClock() : CForwardingSystem(NativeSystem()), m_pBefore(ReplaceSystem(this)) {}
  ~CClock() override { ReplaceSystem(m_pBefore); }
  std::int64_t SteadyMilliseconds() override { return m_llMs; }
  void Sleep(int milliseconds) override { m_llMs += milliseconds; }
  ESystemError LocalTime(std::int64_t, SCalendarTime& time) override {
    const auto minute = static_cast<int>(m_llMs / 60000);
    time = {2026, 11, 22, minute / 60 % 24, minute % 60, 0};
    return ESystemError::kNone;
  }
  std::int64_t m_llMs = 0;  // since midnight

 private:
  ISystem* const m_pBefore;
};

CBandwidth Make(const std::string& text) {
  std::vector<SBandwidthStep> steps;
  EXPECT_EQ(CBandwidth::Parse(text, steps), "") << text;
  return CBandwidth(steps);
}

TEST(Bandwidth, KeepsItsRateWhateverMovesAtOnce) {
  CClock clock;
  for (const char* text : {"1k", "100k", "1M", "1048576", "1.5M", "100M"}) {
    CBandwidth limit = Make(text);
    limit.Wait(0);
    clock.m_llMs += 5000;  // of which nothing is caught up
    const std::int64_t end = clock.m_llMs + 10000;
    std::int64_t moved = 0;
    while (clock.m_llMs < end) {
      const int granted = std::min(limit.Wait(50), moved % 3 == 0 ? INT_MAX : 65508);
      limit.Moved(static_cast<std::size_t>(granted));
      moved += granted;
    }
    const bool coarse = limit.Rate() < 2048;  // it moves a kilobyte at a time
    EXPECT_NEAR(static_cast<double>(moved) / (10.0 * limit.Rate()), 1, coarse ? 0.2 : 0.05) << text;
  }
  CBandwidth off = Make("off");
  EXPECT_EQ(off.Wait(1000), INT_MAX);
}

TEST(Bandwidth, TimetablesGoRoundAtMidnight) {
  CClock clock;
  CBandwidth limit = Make("19:00,off 08:00,512k 12:30,2M");
  const std::pair<int, int> expected[] = {
      {0, 0},         {8 * 60 - 1, 0}, {8 * 60, 512 << 10}, {12 * 60 + 29, 512 << 10},
      {750, 2 << 20}, {19 * 60, 0},    {23 * 60 + 59, 0},   {24 * 60 + 480, 512 << 10}};
  for (const auto& [minute, rate] : expected) {
    clock.m_llMs = std::int64_t{60000} * minute;
    EXPECT_EQ(limit.Rate(), rate) << minute;
  }
  limit.Wait(0);
  limit.Moved(1 << 20);
  clock.m_llMs = std::int64_t{60000} * (24 + 20) * 60;  // off: what was overdrawn is forgotten
  EXPECT_EQ(limit.Wait(0), INT_MAX);
  std::vector<SBandwidthStep> steps;
  for (const char* wrong :
       {"", " ", "10X", "k", "1", "-1M", "2G", "nan", "1e6", "1M 2M", "1M 08:00,2M", "8:00,1M",
        "24:00,1M", "08:60,1M", "08:00,", "08:00,1M,2M", "08:-1,1M"}) {
    EXPECT_NE(CBandwidth::Parse(wrong, steps), "") << wrong;
  }
}

}  // namespace
