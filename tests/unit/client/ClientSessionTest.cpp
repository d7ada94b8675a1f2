// The client's connection: one link, and its loss.

#include "net/LinkInfo.h"
#include "protocol/MessageCodes.h"
#include "support/TestClient.h"

namespace {

using ClientSession = CClientTest;

TEST_F(ClientSession, ConnectingAgainKeepsTheLinkUnlessTheAddressChanges) {
  CFakeServer other;
  ILinkInfo* const link = m_client.m_pLinkInfo;
  ASSERT_NE(link, nullptr);
  EXPECT_TRUE(m_client.Connect("127.0.0.1", m_server.Port()));
  EXPECT_EQ(m_client.m_pLinkInfo.Load(), link);
  EXPECT_TRUE(m_client.Connect("127.0.0.1", other.Port()));
  EXPECT_FALSE(link->IsLink());

  m_client.Stop();
  EXPECT_FALSE(m_client.IsConnect() || m_client.SendMessage(NET_CTS_GETPRJDIR, nullptr, 0) ||
               m_client.SendData(0, "x", 1));
  EXPECT_EQ(m_client.StartUpload({}), -14);
  EXPECT_TRUE(m_client.Init(m_client.m_logs.Path()));
  EXPECT_EQ(m_client.Upload({}), std::vector<int>{}) << "a transfer connects by itself";

  m_client.m_nTransState = 1;
  m_client.m_evTransEnd->ResetKQEvent();
  ASSERT_TRUE(other.WaitFor(NET_COMMAND_CONNECT, 2));
  other.Drop();
  EXPECT_TRUE(WaitUntil([&] { return m_client.m_nTransState == 0; }));
  EXPECT_FALSE(m_client.IsConnect());
  EXPECT_EQ(m_client.m_pLinkInfo.Load(), nullptr);
  for (CKQEvent* event : {m_client.m_evReply, m_client.m_evFileEnd, m_client.m_evTransEnd}) {
    EXPECT_EQ(event->Wait(0), kWaitTimeout) << "a lost link wakes nobody";
  }
}

// A client that says "connected" and has no link would refuse for ever.
TEST_F(ClientSession, LinkThatDiesWhileConnectingLeavesNoHalfConnection) {
  CTestClient client;
  m_server.On(NET_COMMAND_CONNECT, [&](const std::string&) { m_server.Drop(); });
  for (int i = 0; i < 300; ++i) {
    client.Connect("127.0.0.1", m_server.Port());
    ASSERT_TRUE(WaitUntil([&] { return !client.m_bConnect && client.m_pLinkInfo == nullptr; }));
  }
  m_server.Silent(NET_COMMAND_CONNECT);
  EXPECT_TRUE(client.Connect("127.0.0.1", m_server.Port()));
  EXPECT_NE(client.m_pLinkInfo.Load(), nullptr);
}

}  // namespace
