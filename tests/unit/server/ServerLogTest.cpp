// What the server tells, when it writes its log, and where.

#include "protocol/MessageCodes.h"
#include "support/TestServer.h"

namespace {

using ServerLog = CServerTest;

TEST_F(ServerLog, LinksAreToldInAFileThatIsBegunAnewWhenFull) {
  m_server.WriteLog("dropped\n");
  EXPECT_EQ(m_server.m_strLogFile, "");
  m_server.SetLog(m_dir.Path(), true);
  const std::string first = m_server.m_strLogFile;
  EXPECT_EQ(first.rfind(m_dir / "KQFileTransServer_", 0), 0U);
  m_server.DealNetMsg(0x7f000001, 5000, NET_COMMAND_CONNECT, 0, nullptr, 0);
  m_server.DealNetMsg(0x7f000001, 5000, NET_COMMAND_DISCONNECT, 0, nullptr, 0);
  EXPECT_EQ(WithoutTimes(ReadWholeFile(first)),
            "new client: 127.0.0.1 :5000 \nclient disconnect: 127.0.0.1 :5000 \n");
  MakeSparseFile(first, 1048577);
  m_system.AdvanceClock(5);
  const std::string message = PatternBytes(3000);  // longer than any fixed buffer
  m_server.WriteLog(message);
  EXPECT_NE(m_server.m_strLogFile, first);
  m_server.SetLog(m_dir.Path(), false);
  m_server.WriteLog("dropped\n");
  EXPECT_EQ(WithoutTimes(ReadWholeFile(m_server.m_strLogFile)), message);
}

}  // namespace
