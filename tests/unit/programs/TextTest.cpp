// Numbers, names and objects as kqft shows them.

#include "programs/kqft/Text.h"

#include <chrono>

#include "platform/System.h"
#include "programs/kqft/JsonObject.h"
#include "programs/kqft/Progress.h"
#include "programs/kqft/Times.h"

TEST(Text, NamesCannotMoveTheCursorAndAreWellFormed) {
  EXPECT_EQ(Printable("a\x1b[2J\n\x7f\xc3\xa4"), "a\\x1B[2J\\x0A\\x7F\xc3\xa4");
  for (const char* good :
       {"", "a", "\xc3\xa4", "\xe2\x82\xac", "\xf0\x9f\x98\x80", "\xed\x9f\xbf"}) {
    EXPECT_TRUE(IsUtf8(good)) << good;
  }
  for (const char* bad : {"\x80", "\xc0\xaf", "\xe0\x80\x80", "\xed\xa0\x80", "\xf4\x90\x80\x80",
                          "\xc3", "\xe2\x82", "\xf0\x9f\x98", "\xff"}) {
    EXPECT_FALSE(IsUtf8(bad)) << bad;
  }
  EXPECT_EQ(ReplaceNonUtf8("a\xff\xc3\xa4\xc3"), "a\xef\xbf\xbd\xc3\xa4\xef\xbf\xbd");
}

TEST(Text, ProgressLineIsCutToTheTerminal) {
  const std::int64_t mib = 1 << 20;
  STransferProgress progress;
  progress.m_llDone = 3 * mib;
  progress.m_llTotal = 4 * mib;
  progress.m_nFilesDone = 1;
  progress.m_nFilesTotal = 2;
  progress.m_strFile = "P/\xc3\xa4\x1b";
  progress.m_dBytesPerSecond = 524288;
  const std::string line =
      "[==============>     ]  75%  3.0 MiB of 4.0 MiB  512.0 KiB/s  0:02 left  1 of 2 files  ";
  EXPECT_EQ(ProgressLine(progress, 0), line + "P/\xc3\xa4\\x1B");
  EXPECT_EQ(ProgressLine(progress, line.size() + 3), line + "P/\xc3\xa4");
  progress.m_llSilentMs = 5000;
  EXPECT_NE(ProgressLine(progress, 0).find("4.0 MiB  waiting for the server (5 s)  1 of 2 files"),
            std::string::npos);
  EXPECT_NE(ProgressLine(STransferProgress(), 0).find(" 0%  "), std::string::npos);
}

TEST(Text, JsonCarriesEveryByteOfAName) {
  CJsonObject object("x");
  object.Name("name", "a\xff").Text("text", "q\"\\\n\x01").Number("n", -2).Seconds("s", 0.25);
  object.List("list", {CJsonObject().Number("a", 1), CJsonObject()});
  EXPECT_EQ(object.Line(),
            "{\"type\":\"x\",\"name\":\"a\xef\xbf\xbd\",\"name_hex\":\"61ff\","
            "\"text\":\"q\\\"\\\\\\u000A\\u0001\",\"n\":-2,\"s\":0.250,\"list\":[{\"a\":1},{}]}");
}

// Another zone than that of the machine: ahead of UTC, and more so in summer.
struct CZone : CForwardingSystem {
  explicit CZone(std::int64_t ahead) : CForwardingSystem(NativeSystem()), m_llAhead(ahead) {}
  ESystemError LocalTime(std::int64_t seconds, SCalendarTime& time) override {
    const bool isSummer = seconds >= 1774746000 && seconds < 1792890000;
    const std::chrono::sys_seconds local(
        std::chrono::seconds(seconds + m_llAhead + (isSummer ? 3600 : 0)));
    const auto midnight = std::chrono::floor<std::chrono::days>(local);
    const std::chrono::year_month_day day(midnight);
    const std::chrono::hh_mm_ss clock(local - midnight);
    time = {static_cast<int>(day.year()),
            static_cast<int>(static_cast<unsigned>(day.month())),
            static_cast<int>(static_cast<unsigned>(day.day())),
            static_cast<int>(clock.hours().count()),
            static_cast<int>(clock.minutes().count()),
            static_cast<int>(clock.seconds().count())};
    return ESystemError::kNone;
  }
  const std::int64_t m_llAhead;
};

TEST(Text, TimesNameTheirZone) {
  CZone east(3600), west(-12600);
  ISystem* const before = ReplaceSystem(&east);
  const std::pair<const char*, const char*> times[] = {
      {"2026-01-02_03-04-05", "2026-01-02 03:04:05 +0100"},
      {"2026-03-29_01-59-59", "2026-03-29 01:59:59 +0100"},
      {"2026-03-29_03-00-00", "2026-03-29 03:00:00 +0200"},
      {"2026-10-25_03-00-00", "2026-10-25 03:00:00 +0100"}};
  std::int64_t seconds = 0;
  for (const auto& [text, shown] : times) {
    EXPECT_TRUE(ParseServerTime(text, seconds));
    EXPECT_EQ(FormatTime(seconds), shown);
  }
  ReplaceSystem(&west);
  EXPECT_EQ(FormatTimeForPrograms(-1), "1969-12-31T20:29:59-03:30");
  for (const char* wrong : {"", "2026-13-02_03-04-05", "2026-01-02_03-04-05x", "2026-01-02"}) {
    EXPECT_FALSE(ParseServerTime(wrong, seconds)) << wrong;
  }
  ReplaceSystem(before);
}
