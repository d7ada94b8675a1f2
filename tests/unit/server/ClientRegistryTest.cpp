// Which session serves which link, and how sessions end.

#include <filesystem>

#include "net/NetBuffer.h"
#include "platform/KQFile.h"
#include "protocol/MessageCodes.h"
#include "protocol/TransferTypes.h"
#include "server/EndServer.h"
#include "support/FakeTransNet.h"
#include "support/Packets.h"
#include "support/Sockets.h"
#include "support/TestServer.h"

namespace {

using ClientRegistry = CServerTest;

constexpr unsigned int kAddress = 0x0a000005;

TEST_F(ClientRegistry, ReturningClientTakesItsSessionOver) {
  CNetBuffer* const buffer = m_server.CreateNetBuffer(kAddress, 4000, 0, 0);
  CTransClient* const session = m_server.GetClientManage(kAddress, 4000);
  EXPECT_EQ(m_server.AddClientManage(kAddress, 4000), session);
  EXPECT_EQ(m_server.CreateNetBuffer(kAddress, 4001, 0, 0), buffer);
  EXPECT_EQ(buffer->m_nLinkPort, 4001);
  EXPECT_EQ(m_server.GetClientManage(kAddress, 4001), session);
  EXPECT_EQ(session->m_nLinkPort, 4001);
  EXPECT_EQ(m_server.GetClientManage(kAddress, 4000), nullptr);
  EXPECT_EQ(m_server.m_mapClient.count(4001ULL << 32 | kAddress), 1U);

  EXPECT_NE(m_server.AddClientManage(kAddress + 1, 4001), session);
  session->m_bInUse = true;  // left alone then
  EXPECT_NE(m_server.AddClientManage(kAddress, 4002), session);
  EXPECT_EQ(m_server.m_mapClient.size(), 3U);
}

TEST_F(ClientRegistry, StoppedSessionsStayUntilTheyAreDeleted) {
  CTransClient* const first = m_server.AddClientManage(1, 1);
  for (CTransClient* session : {first, m_server.AddClientManage(2, 2)}) {
    session->m_bWriting = true;  // as every stored chunk leaves it
    session->m_nTransType = PROCESS_TYPE_CLIENT_UPDATA;
    ASSERT_TRUE(session->m_pTransFile->KQOpen(m_dir / "up", "w+b"));
  }
  m_server.RemoveClientManage(7, 7);  // unknown
  EXPECT_EQ(m_system.SleptMilliseconds(), 0);
  m_server.RemoveClientManage(1, 1);
  EXPECT_EQ(m_system.SleptMilliseconds(), 5070);
  EXPECT_TRUE(first->m_bStopService);
  EXPECT_FALSE(first->m_pTransFile->IsOpen());
  EXPECT_EQ(first->m_nTransType, PROCESS_TYPE_NONE);
  EXPECT_FALSE(m_server.GetClientManage(2, 2)->m_bStopService);

  m_server.Stop();  // every session waits, those already stopped too
  EXPECT_EQ(m_system.SleptMilliseconds(), 3 * 5070);
  EXPECT_EQ(m_server.m_mapClient.size(), 2U);
  m_server.CreateNetBuffer(1, 5, 0, 0);
  EXPECT_FALSE(first->m_bStopService);
  ASSERT_TRUE(m_server.Init(0) && first->m_pTransFile->KQOpen(m_dir / "up", "r+b"));
  ASSERT_TRUE(m_server.Init(m_server.Port()));  // another port, as the server knows it
  EXPECT_TRUE(first->m_bStopService);
  EXPECT_FALSE(first->m_pTransFile->IsOpen());
  m_server.RemoveAllClient(true);
  EXPECT_TRUE(m_server.m_mapClient.empty());

  auto other = std::make_unique<CTestServer>(m_dir);
  other->AddClientManage(1, 1);
  EXPECT_TRUE(EndServer(std::move(other), 1000000));
}

// A server whose every link is up, or none.
class CLinkedServer : public CTestServer {
 public:
  using CTestServer::CTestServer;
  ILinkInfo* GetLinkInfo(unsigned int, int) override { return m_bLinked ? &m_link : nullptr; }

  CFakeTransNet m_link;
  bool m_bLinked = true;
};

TEST_F(ClientRegistry, OnlyALinkThatIsGoneLosesTheBeginningOfAPacket) {
  const std::string packet = MakePacket(NET_CTS_REQUEST_SERVERFILESIZE, std::string(1700000, 'x'));
  CLinkedServer server(m_dir);
  CNetBuffer* const buffer = server.CreateNetBuffer(kAddress, 1, 0, 0);
  for (const bool linked : {true, false}) {
    server.m_bLinked = linked;
    buffer->DealNetData(packet.data(), packet.size() / 2);
    server.RemoveAllClient(false);
    buffer->DealNetData(packet.data() + packet.size() / 2, packet.size() / 2);
    EXPECT_EQ(buffer->IsBroken(), !linked);  // the rest is no packet
  }
}

}  // namespace
