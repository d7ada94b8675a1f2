// The client's connection: one link, its loss, its end.

#include "net/LinkInfo.h"
#include "net/NetWorkManageEx.h"
#include "protocol/MessageCodes.h"
#include "support/TestClient.h"

namespace {

TEST(ClientSession, ConnectingAgainKeepsTheLinkUnlessTheAddressChanges) {
  CFakeServer server;
  CFakeServer other;
  CTestClient client(server);
  ILinkInfo* const link = client.m_pLinkInfo;
  ASSERT_NE(link, nullptr);
  EXPECT_TRUE(client.Connect("127.0.0.1", server.Port()));
  EXPECT_EQ(client.m_pLinkInfo.Load(), link);

  EXPECT_TRUE(client.Connect("127.0.0.1", other.Port()));
  EXPECT_FALSE(link->IsLink());
  EXPECT_NE(client.m_pLinkInfo.Load(), link);

  client.Stop();
  EXPECT_FALSE(client.IsConnect());
  EXPECT_FALSE(client.SendMessage(NET_CTS_GETPRJDIR, nullptr, 0));
  EXPECT_FALSE(client.Connect("127.0.0.1", server.Port()));
  EXPECT_EQ(client.UpdateFileToDataService(""), -14);
  EXPECT_TRUE(client.Init(client.m_logs.Path()));
  EXPECT_EQ(client.Upload({}), std::vector<int>{}) << "a transfer connects by itself";
  EXPECT_TRUE(client.IsConnect());
}

TEST(ClientSession, LostLinkStopsTheTransferAndSetsNoEvent) {
  CFakeServer server;
  CTestClient client(server);
  client.m_nTransState = 1;
  server.Drop();
  while (client.m_nTransState != 0) std::this_thread::yield();
  EXPECT_FALSE(client.IsConnect());
  EXPECT_TRUE(client.m_bStop);
  EXPECT_EQ(client.m_pLinkInfo.Load(), nullptr);
  EXPECT_EQ(client.m_evReply->Wait(0), kWaitTimeout);
  EXPECT_EQ(client.m_evFileEnd->Wait(0), kWaitTimeout);
  EXPECT_EQ(client.m_evTransEnd->Wait(0), kWaitTimeout);
}

// A client that says "connected" and has no link would refuse for ever.
TEST(ClientSession, LinkThatDiesWhileConnectingLeavesNoHalfConnection) {
  CFakeServer server;
  server.On(NET_COMMAND_CONNECT, [&](const std::string&) { server.Drop(); });
  CTestClient client;
  for (int i = 0; i < 300; ++i) {
    client.Connect("127.0.0.1", server.Port());
    for (int spins = 0; client.m_bConnect && spins < 20000; ++spins) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ASSERT_FALSE(client.m_bConnect) << "round " << i;
    ASSERT_EQ(client.m_pLinkInfo.Load(), nullptr);
  }
  server.On(NET_COMMAND_CONNECT, nullptr);
  EXPECT_TRUE(client.Connect("127.0.0.1", server.Port()));
  EXPECT_NE(client.m_pLinkInfo.Load(), nullptr);
}

TEST(ClientSession, HostMayStopFromItsOwnHandler) {
  struct CStoppingClient : CTestClient {
    using CTestClient::CTestClient;
    ~CStoppingClient() override { Stop(); }
    bool DealNetMsg(unsigned int ip, int port, int code, int length, const char* body,
                    int extra) override {
      if (code == NET_STC_WRITEDATA_ERROR) Stop();
      return CTestClient::DealNetMsg(ip, port, code, length, body, extra);
    }
  };
  CFakeServer server;
  CStoppingClient client;
  ASSERT_TRUE(client.Connect("127.0.0.1", server.Port()));
  server.Send(NET_STC_WRITEDATA_ERROR, Int32(-10));
  while (client.m_nServerErrorCode != -10) std::this_thread::yield();
  EXPECT_FALSE(client.IsConnect());
  EXPECT_TRUE(client.Init(client.m_logs.Path()));
  EXPECT_TRUE(client.Connect("127.0.0.1", server.Port()));
}

TEST(ClientSession, RequestsReportTheirFailure) {
  CScopedSystem system(CFaultPlan().ClockFaster(100));
  CFakeServer server;
  CTestClient client(server);
  server.Answer(NET_CTS_GETLOSTINFO, Int32(-29));
  EXPECT_EQ(client.SendAndWaitPre(NET_CTS_GETLOSTINFO, "a", 1), -29);
  server.Silent(NET_CTS_GETLOSTINFO);
  EXPECT_EQ(client.SendAndWaitPre(NET_CTS_GETLOSTINFO, "a", 1), -19);
  EXPECT_FALSE(client.SendMessage(NET_CTS_GETLOSTINFO, "a", -1));
  server.Drop();
  while (client.m_pLinkInfo != nullptr) std::this_thread::yield();
  EXPECT_EQ(client.SendAndWaitPre(NET_CTS_GETLOSTINFO, "a", 1), -18);
  EXPECT_FALSE(client.SendData(0, "a", 1));
}

}  // namespace
