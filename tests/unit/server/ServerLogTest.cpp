// When the server writes its log, and where.

#include "support/TestServer.h"

namespace {

TEST(ServerLog, FileIsBegunWhenSwitchedOnAndWhenFull) {
  STestServer test;
  test.m_server.WriteLog("dropped\n");
  EXPECT_EQ(test.m_server.m_strLogFile, "");
  test.m_server.SetLog(test.m_dir.Path(), true);
  const std::string first = test.m_server.m_strLogFile;
  EXPECT_EQ(first.rfind(test.m_dir / "KQFileTransServer_", 0), 0U);
  WriteWholeFile(first, std::string(1048576, 'x'));
  test.m_system.AdvanceClock(5);
  test.m_server.WriteLog("still here\n");
  EXPECT_EQ(test.m_server.m_strLogFile, first);
  const std::string message = PatternBytes(3000);  // longer than any fixed buffer
  test.m_server.WriteLog(message);
  EXPECT_NE(test.m_server.m_strLogFile, first);
  test.m_server.SetLog(test.m_dir.Path(), false);
  test.m_server.WriteLog("dropped\n");
  EXPECT_EQ(ReadWholeFile(test.m_server.m_strLogFile).substr(19), ": " + message);
}

}  // namespace
