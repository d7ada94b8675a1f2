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

// Writes down which links it hears of.
class CHookedServer : public CTestServer {
 public:
  using CTestServer::CTestServer;
  ~CHookedServer() override { Stop(); }
  void OnConnected(const STransferFacts& link) override { Hear("up", link); }
  void OnDisconnected(const STransferFacts& link) override {
    Hear("down", link);
    throw link.m_nPort;  // the host's own affair
  }
  void OnUploaded(const STransferFacts& file) override { Hear("cut", file); }

  std::string m_strHeard;

 private:
  void Hear(const std::string& what, const STransferFacts& facts) {
    m_strHeard += what + std::to_string(facts.m_nPort) + " ";
  }
};

TEST_F(ServerLog, HooksHearOfEveryLinkAndOfItsEndAtTheLatestWhenTheServerStops) {
  CHookedServer server(m_dir);
  for (const int port : {1, 2, 3}) {
    const auto ip = static_cast<unsigned int>(port);
    server.CreateNetBuffer(ip, port, 0, 0);
    server.DealNetMsg(ip, port, NET_COMMAND_CONNECT, 0, nullptr, 0);
    const std::string body = '\1' + (m_dir / ("file" + std::to_string(port)));
    server.DealNetMsg(ip, port, NET_CTS_PREPARETRAN_FILE, static_cast<int>(body.size()),
                      body.data(), 0);
  }
  server.CreateNetBuffer(2, 4, 0, 0);  // takes the session over
  for (int i = 0; i < 2; ++i) server.DealNetMsg(2, 2, NET_COMMAND_DISCONNECT, 0, nullptr, 0);
  server.DealNetMsg(1, 1, NET_COMMAND_DISCONNECT, 0, nullptr, 0);
  EXPECT_EQ(server.m_strHeard, "up1 up2 up3 cut2 down2 cut1 down1 ");
  server.Stop();
  EXPECT_EQ(server.m_strHeard, "up1 up2 up3 cut2 down2 cut1 down1 cut3 down3 ");
}

}  // namespace
