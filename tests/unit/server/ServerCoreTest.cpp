// The server on the wire, and at its end.

#include "protocol/MessageCodes.h"
#include "support/Packets.h"
#include "support/Sockets.h"
#include "support/TestServer.h"

namespace {

using ServerCore = CServerTest;

TEST_F(ServerCore, ListensWhereItWasToldAndAgainAfterStop) {
  CTestServer other(m_dir);
  ASSERT_TRUE(m_server.Init(0));
  const int port = m_server.Port();
  EXPECT_TRUE(m_server.Init(0));  // listens already
  EXPECT_EQ(m_server.Port(), port);
  EXPECT_FALSE(other.Init(port));
  EXPECT_TRUE(other.Init(0));
  const std::string answer = MakePacket(NET_CTS_GETPRJDIR, m_dir.Path());
  for (int i = 0; i < 2; ++i) {
    const CRawClient client(port);
    ASSERT_TRUE(client.Send(MakePacket(2515, "unknown") + MakePacket(NET_CTS_GETPRJDIR)));
    EXPECT_EQ(client.Receive(answer.size()), answer);
    m_server.Stop();
    EXPECT_TRUE(client.WaitClosed());
    ASSERT_TRUE(m_server.Init(port));
  }
}

TEST_F(ServerCore, EndsInTheMiddleOfTransfers) {
  WriteWholeFile(m_dir / "file", PatternBytes(8 << 20));
  for (int i = 0; i < 3; ++i) {
    CTestServer server(m_dir);
    ASSERT_TRUE(server.Init(0));
    const CRawClient reader(server.Port(), "127.8.0.1"), writer(server.Port(), "127.8.0.2");
    reader.Send(MakePacket(NET_CTS_PREPARETRANS_FILE, Int64(0) + (m_dir / "file")));
    EXPECT_EQ(reader.Receive(100000).size(), 100000U);  // and reads no more
    writer.Send(MakePacket(NET_CTS_PREPARETRAN_FILE, "\1" + (m_dir / "up")));
    EXPECT_EQ(writer.Receive(32).size(), 32U);
    writer.Send(MakePacket(NET_CTS_TRANSFILEDATA, Int64(0) + std::string(60000, 'x')));
  }
}

}  // namespace
