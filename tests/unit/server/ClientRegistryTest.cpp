// Which session serves which link, and how sessions end.

#include "net/NetBuffer.h"
#include "platform/KQFile.h"
#include "protocol/TransferTypes.h"
#include "support/TestServer.h"

namespace {

constexpr unsigned int kAddress = 0x0a000005;

TEST(ClientRegistry, ReturningClientTakesItsSessionOver) {
  STestServer test;
  CNetBuffer* const buffer = test.m_server.CreateNetBuffer(kAddress, 4000, 0, 0);
  CTransClient* const session = test.m_server.GetClientManage(kAddress, 4000);
  EXPECT_EQ(test.m_server.AddClientManage(kAddress, 4000), session);
  EXPECT_EQ(test.m_server.CreateNetBuffer(kAddress, 4001, 0, 0), buffer);
  EXPECT_EQ(buffer->m_nLinkPort, 4001);
  EXPECT_EQ(test.m_server.GetClientManage(kAddress, 4001), session);
  EXPECT_EQ(session->m_nLinkPort, 4001);
  EXPECT_EQ(test.m_server.GetClientManage(kAddress, 4000), nullptr);
  ASSERT_EQ(test.m_server.m_mapClient.size(), 1U);
  EXPECT_EQ(test.m_server.m_mapClient.begin()->first, 4001ULL << 32 | kAddress);

  session->m_bInUse = true;  // left alone then; else the smallest key goes first
  EXPECT_NE(test.m_server.AddClientManage(kAddress, 4002), session);
  session->m_bInUse = false;
  EXPECT_EQ(test.m_server.AddClientManage(kAddress, 4003), session);
  EXPECT_NE(test.m_server.AddClientManage(kAddress + 1, 4003), session);
  EXPECT_EQ(test.m_server.m_mapClient.size(), 3U);
}

TEST(ClientRegistry, StoppedSessionsStayUntilTheyAreDeleted) {
  STestServer test;
  CTransClient* const first = test.m_server.AddClientManage(1, 1);
  for (CTransClient* session : {first, test.m_server.AddClientManage(2, 2)}) {
    session->m_bWriting = true;  // as every stored chunk leaves it
    session->m_nTransType = PROCESS_TYPE_CLIENT_UPDATA;
    ASSERT_TRUE(session->m_pTransFile->KQOpen(test.m_dir / "up", "w+b"));
  }
  test.m_server.RemoveClientManage(7, 7);  // unknown
  EXPECT_EQ(test.m_system.SleptMilliseconds(), 0);
  test.m_server.RemoveClientManage(1, 1);
  EXPECT_EQ(test.m_system.SleptMilliseconds(), 5070);
  EXPECT_TRUE(first->m_bStopService);
  EXPECT_FALSE(first->m_pTransFile->IsOpen());
  EXPECT_EQ(first->m_nTransType, PROCESS_TYPE_NONE);
  EXPECT_FALSE(test.m_server.GetClientManage(2, 2)->m_bStopService);

  test.m_server.Stop();  // every session waits, those already stopped too
  EXPECT_EQ(test.m_system.SleptMilliseconds(), 3 * 5070);
  EXPECT_EQ(test.m_server.m_mapClient.size(), 2U);
  test.m_server.CreateNetBuffer(1, 5, 0, 0);
  EXPECT_FALSE(first->m_bStopService);
  test.m_server.RemoveAllClient(true);
  EXPECT_TRUE(test.m_server.m_mapClient.empty());
}

}  // namespace
