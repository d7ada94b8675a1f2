// The server on the wire, and at its end.

#include "protocol/MessageCodes.h"
#include "support/Packets.h"
#include "support/Sockets.h"
#include "support/TestServer.h"

namespace {

using ServerCore = CServerTest;

TEST_F(ServerCore, EndsInTheMiddleOfTransfersAndListensAgain) {
  WriteWholeFile(m_dir / "file", PatternBytes(8 << 20));
  ASSERT_TRUE(m_server.Init(0));
  const int port = m_server.Port();
  EXPECT_TRUE(m_server.Init(port));  // listens already
  EXPECT_FALSE(CTestServer(m_dir).Init(port));
  for (int i = 0; i < 3; ++i) {
    const CRawClient reader(port, "127.8.0.1"), writer(port, "127.8.0.2");
    reader.Send(MakePacket(2515, "unknown") +
                MakePacket(NET_CTS_PREPARETRANS_FILE, Int64(0) + (m_dir / "file")));
    EXPECT_EQ(reader.Receive(100000).size(), 100000U);  // and reads no more
    writer.Send(MakePacket(NET_CTS_PREPARETRAN_FILE, "\1" + (m_dir / "up")));
    EXPECT_EQ(writer.Receive(32).size(), 32U);
    writer.Send(MakePacket(NET_CTS_TRANSFILEDATA, Int64(0) + std::string(60000, 'x')));
    m_server.Stop();
    EXPECT_TRUE(reader.WaitClosed());
    ASSERT_TRUE(m_server.Init(port));
  }
}

}  // namespace
