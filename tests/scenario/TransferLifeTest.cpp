// Real client, real server: transfers whose ends are cut, stopped, taken over
// and destroyed while they run.

#include <future>

#include "net/NetWorkPackHead.h"
#include "protocol/MessageCodes.h"
#include "protocol/ResultCodes.h"
#include "support/Sockets.h"
#include "support/TestClient.h"
#include "support/TestServer.h"

namespace {

constexpr std::int64_t kLargeBytes = std::int64_t{1} << 28;

// A server that listens.
class TransferLife : public CServerTest {
 protected:
  void SetUp() override { ASSERT_TRUE(m_server.Init(0)); }
  int Port() const { return m_server.Port(); }
};

TEST_F(TransferLife, EitherEndMayStopOrDieInTheMiddleOfATransfer) {
  m_system.Follow(CFaultPlan().ClockFaster(10));
  MakeSparseFile(m_dir / "down", kLargeBytes);
  for (int round = 0; round < 8; ++round) {
    auto server = std::make_unique<CTestServer>(m_dir);
    ASSERT_TRUE(server->Init(0) && server->Init(0));
    auto client = std::make_unique<CTestClient>(server->Port());
    MakeSparseFile(client->m_files / "up", kLargeBytes);
    ASSERT_EQ(round < 4 ? client->StartUpload({"up"}, m_dir.Path())
                        : client->StartDownload({"down"}, m_dir.Path()),
              RESULT_OK);
    ASSERT_TRUE(WaitUntil([&] { return client->GetTrans() > 0.01F * static_cast<float>(round); }));
    switch (round % 4) {
      case 0:
        client->Stop();
        EXPECT_NE(client->Finish(), std::vector<int>{RESULT_OK});
        break;
      case 1:
        client.reset();
        EXPECT_TRUE(WaitUntil([&] { return server->Links() == 0; }));
        break;
      case 2:
        server->Stop();
        client->Finish();
        EXPECT_TRUE(server->Init(0));
        break;
      default:
        server.reset();
        client->Finish();
        EXPECT_FALSE(client->IsConnect());
    }
  }
}

TEST_F(TransferLife, ANewerLinkOfAnAddressTakesOverAndIsServedWhole) {
  const std::string content = PatternBytes(3 << 20);
  CTestClient first(Port(), "127.4.0.2");
  MakeSparseFile(first.m_files / "a.dat", kLargeBytes);
  ASSERT_EQ(first.StartUpload({"a.dat"}, m_dir.Path()), RESULT_OK);
  ASSERT_TRUE(WaitUntil([&] { return first.GetTrans() > 0; }));
  CTestClient second(Port(), "127.4.0.2");
  std::string answer;  // comes once the session has been quiet
  ASSERT_TRUE(WaitUntil([&] { return second.GetPrjDir(answer) == RESULT_OK; }));
  second.File("b.dat", content);
  EXPECT_EQ(second.Upload({"b.dat"}, m_dir.Path()), std::vector<int>{RESULT_OK});
  EXPECT_TRUE(ReadWholeFile(m_dir / "b.dat") == content);
  EXPECT_EQ(m_server.Sessions(), 1U);
  EXPECT_NE(first.Finish(), std::vector<int>{RESULT_OK});  // its end was never acknowledged
}

// Lets a test act between a session's look at the link and what it sends.
struct CInterruptedServer : CTestServer {
  using CTestServer::CTestServer, CTestServer::SendText;
  ~CInterruptedServer() override { Stop(); }
  std::string GetFileDir() override {
    if (m_nGivenTo != 0) AddClientManage(0x7f040005, m_nGivenTo);
    return CTestServer::GetFileDir();
  }
  bool SendText(unsigned int ip, int port, const char* data, int len) override {
    if (CNetWorkPackHead::Code(data) == NET_STC_TRANSFILEDATA_END) m_beforeEnd();
    return CTestServer::SendText(ip, port, data, len);
  }

  CSharedWord<int> m_nGivenTo = 0;  // the port of a link that takes the session over
  std::function<void()> m_beforeEnd;
};

TEST_F(TransferLife, AnswersGoToTheLinkOnWhichTheRequestCame) {
  CInterruptedServer server(m_dir);
  ASSERT_TRUE(server.Init(0));
  const std::string question = MakePacket(NET_CTS_GETPRJDIR);
  const std::string answer = MakePacket(NET_CTS_GETPRJDIR, m_dir.Path());
  const CRawClient other(server.Port(), "127.4.0.5");
  ASSERT_TRUE(WaitUntil([&] { return server.Sessions() == 1; }));
  CRawClient client(server.Port(), "127.4.0.5");
  const auto isAnswered = [&] {
    return client.Send(question) && client.Receive(answer.size()) == answer;
  };
  ASSERT_TRUE(isAnswered());
  server.m_nGivenTo = other.LocalPort();
  EXPECT_TRUE(isAnswered());
  server.m_nGivenTo = 0;
  client.Reconnect();

  // A download's end is on its way when its client comes back.
  WriteWholeFile(m_dir / "file", "");
  std::promise<bool> back;
  server.m_beforeEnd = [&] {
    client.Reconnect();
    back.set_value(isAnswered());
  };
  client.Send(MakePacket(NET_CTS_PREPARETRANS_FILE, Int64(0) + (m_dir / "file")));
  EXPECT_TRUE(back.get_future().get());
  server.GetClientManage(0x7f040005, client.LocalPort())->WaitSenders();
  EXPECT_TRUE(isAnswered());
}

TEST_F(TransferLife, ThreeHundredReconnectsKeepOneSession) {
  CTestClient client(Port(), "127.4.0.3");
  std::string dir;
  for (int i = 0; i < 300; ++i) {
    ASSERT_TRUE(client.Connect("127.0.0.1", Port()));
    if (i % 10 == 0) {
      ASSERT_EQ(client.GetPrjDir(dir), RESULT_OK) << i;
    }
    client.Stop();
    ASSERT_TRUE(client.Init(client.m_logs.Path()));
  }
  EXPECT_EQ(dir, m_dir.Path());
  EXPECT_EQ(m_server.Sessions(), 1U);
  EXPECT_TRUE(WaitUntil([&] { return m_server.Links() == 0; }));
}

}  // namespace
