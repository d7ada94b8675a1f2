// The client's connection: one link, and its loss.

#include "net/LinkInfo.h"
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

  client.Stop();
  EXPECT_FALSE(client.IsConnect());
  EXPECT_FALSE(client.SendMessage(NET_CTS_GETPRJDIR, nullptr, 0));
  EXPECT_FALSE(client.SendData(0, "x", 1));
  EXPECT_EQ(client.StartUpload({}), -14);
  EXPECT_TRUE(client.Init(client.m_logs.Path()));
  EXPECT_EQ(client.StartUpload({}), 1) << "a transfer connects by itself";

  client.Finish();
  client.m_nTransState = 1;
  client.m_evTransEnd->ResetKQEvent();
  other.Drop();
  while (client.m_nTransState != 0) std::this_thread::yield();
  EXPECT_FALSE(client.IsConnect());
  EXPECT_EQ(client.m_pLinkInfo.Load(), nullptr);
  for (CKQEvent* event : {client.m_evReply, client.m_evFileEnd, client.m_evTransEnd}) {
    EXPECT_EQ(event->Wait(0), kWaitTimeout) << "a lost link wakes nobody";
  }
}

// A client that says "connected" and has no link would refuse for ever.
TEST(ClientSession, LinkThatDiesWhileConnectingLeavesNoHalfConnection) {
  CFakeServer server;
  server.On(NET_COMMAND_CONNECT, [&](const std::string&) { server.Drop(); });
  CTestClient client;
  for (int i = 0; i < 300; ++i) {
    client.Connect("127.0.0.1", server.Port());
    while (client.m_bConnect) std::this_thread::yield();
    while (client.m_pLinkInfo != nullptr) std::this_thread::yield();
  }
  server.Silent(NET_COMMAND_CONNECT);
  EXPECT_TRUE(client.Connect("127.0.0.1", server.Port()));
  EXPECT_NE(client.m_pLinkInfo.Load(), nullptr);
}

}  // namespace
