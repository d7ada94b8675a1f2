// The client's log: names, rotation, reopening.

#include <filesystem>
#include <regex>

#include "platform/TimeConvert.h"
#include "support/TestClient.h"

namespace {

TEST(ClientLog, NewFileIsBegunBeyondTheLimitOnly) {
  CScopedSystem system;
  CFakeServer server;
  CTestClient client;
  const std::string first = client.m_strLogPath;
  EXPECT_EQ(first.substr(0, first.rfind('_') + 1), client.m_logs / "ServiceClient_");
  ASSERT_TRUE(client.Connect("127.0.0.1", server.Port()));
  std::filesystem::resize_file(first, 1048576);
  client.WriteLog("fits \n");
  EXPECT_EQ(client.m_strLogPath, first);
  std::filesystem::resize_file(first, 1048577);
  system.AdvanceClock(5);
  client.WriteLog("goes on ");
  client.WriteLog("here \n");
  const std::string second = client.m_strLogPath;
  EXPECT_EQ(second.substr(0, second.rfind('_') + 1), client.m_logs / "ServiceClient127.0.0.1_");
  EXPECT_GE(std::stoll(second.substr(second.rfind('_') + 1)), CTimeConvert::GetCurTime() - 5);
  EXPECT_EQ(std::filesystem::file_size(first), 1048577U);
  const std::string time = "\\d{4}-\\d\\d-\\d\\d_\\d\\d-\\d\\d-\\d\\d: ";
  EXPECT_TRUE(
      std::regex_match(ReadWholeFile(second), std::regex(time + "goes on " + time + "here \n")));

  system.AdvanceClock(1);
  client.Init(client.m_logs.Path());
  EXPECT_EQ(std::filesystem::file_size(client.m_strLogPath), 0U) << "each Init begins one";
}

TEST(ClientLog, FileIsReopenedAfterMoreThanSixtySeconds) {
  CScopedSystem system;
  CTestClient client;
  std::filesystem::remove(client.m_strLogPath);
  system.AdvanceClock(58);  // and what the test itself takes
  client.WriteLog("into the removed file\n");
  EXPECT_FALSE(std::filesystem::exists(client.m_strLogPath));
  system.AdvanceClock(3);
  client.WriteLog("reopened\n");
  EXPECT_EQ(client.Log(), "reopened\n");
}

TEST(ClientLog, LinesOfManyThreadsStayWholeThroughRotations) {
  CScopedSystem system;
  CTestClient client;
  std::string line(10000, 'a');
  line.back() = '\n';
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&] {
      for (int k = 0; k < 50; ++k) {
        client.WriteLog(line);
        if (k % 10 == 0) system.AdvanceClock(7);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::string expected;
  for (int i = 0; i < 400; ++i) expected += line;
  EXPECT_TRUE(client.Log() == expected);
}

}  // namespace
