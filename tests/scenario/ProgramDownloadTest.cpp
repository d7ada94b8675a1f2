// A download from a kqft-server of its own by a reader that is slow.

#include "protocol/MessageCodes.h"
#include "support/Packets.h"
#include "support/Programs.h"
#include "support/Sockets.h"

namespace {

TEST(ProgramDownload, SlowReaderCostsTheServerNoMemory) {
  CServerProgram server;
  MakeSparseFile(server.ProjectPath("P/big.tm"), std::int64_t{4} << 30);
  CRawClient client(server.Port(), "127.0.0.2");
  ASSERT_TRUE(client.Send(MakePacket(NET_CTS_GETPRJDIR)));
  ASSERT_EQ(client.Receive(20).size(), 20U);
  const std::int64_t idle = server.Process().MemoryBytes();
  ASSERT_TRUE(client.Send(
      MakePacket(NET_CTS_PREPARETRANS_FILE, Int64(0) + server.ProjectPath("P/big.tm"))));
  constexpr std::size_t kStep = 100000;  // 1 MB/s
  for (int i = 0; i < 40; ++i) {
    ASSERT_EQ(client.Receive(kStep).size(), kStep);
    EXPECT_LT(server.Process().MemoryBytes() - idle, std::int64_t{64} << 20);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
}

}  // namespace
