// The client's log: names, rotation, reopening.

#include <filesystem>

#include "platform/TimeConvert.h"
#include "support/TestClient.h"

namespace {

using ClientLog = CClientTest;

TEST_F(ClientLog, FileIsBegunAnewBeyondTheLimitAndReopenedAfterSixtySeconds) {
  const std::string name = m_client.m_logs / "ServiceClient";
  const std::string first = m_client.m_strLogPath;
  EXPECT_EQ(first.substr(0, first.rfind('_')), name);
  std::filesystem::resize_file(first, 1048576);
  m_client.WriteLog("fits \n");
  EXPECT_EQ(m_client.m_strLogPath, first);
  std::filesystem::resize_file(first, 1048577);
  m_system.AdvanceClock(5);
  m_client.WriteLog("goes on ");
  m_client.WriteLog("here \n");
  const std::string second = m_client.m_strLogPath;
  EXPECT_EQ(second.substr(0, second.rfind('_')), name + "127.0.0.1");
  EXPECT_EQ(WithoutTimes(ReadWholeFile(second)), "goes on here \n");

  std::filesystem::rename(second, second + "~");
  m_system.AdvanceClock(30);
  m_client.WriteLog("into the old file\n");
  EXPECT_FALSE(std::filesystem::exists(second));
  m_system.AdvanceClock(31);
  m_client.WriteLog("reopened\n");
  EXPECT_EQ(WithoutTimes(ReadWholeFile(second)), "reopened\n");
}

TEST_F(ClientLog, SetClockShowsInLinesAndNamesButPassesNoTime) {
  constexpr std::int64_t kMonth = 30LL * 24 * 60 * 60;
  const std::int64_t start = CTimeConvert::GetCurTime();
  for (const std::int64_t step : {kMonth, -2 * kMonth}) {
    m_system.StepWallClock(step);
    const std::int64_t from = CTimeConvert::GetWallTime();
    CTestClient client;
    client.WriteLog("line\n");
    const std::int64_t to = CTimeConvert::GetWallTime();
    const std::string& path = client.m_strLogPath;
    const std::int64_t named = std::stoll(path.substr(path.rfind('_') + 1));
    EXPECT_TRUE(from <= named && named <= to) << path;
    const std::string log = ReadWholeFile(path);
    EXPECT_LE(CTimeConvert::ConvertTimeToString(from) + ": line\n", log);
    EXPECT_LE(log, CTimeConvert::ConvertTimeToString(to) + ": line\n");
  }
  EXPECT_LT(CTimeConvert::GetCurTime() - start, 60);
}

}  // namespace
