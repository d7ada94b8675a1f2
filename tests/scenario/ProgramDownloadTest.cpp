// Downloads from a kqft-server of its own: a reader that is slow, and one
// that stops in the middle.

#include "protocol/MessageCodes.h"
#include "support/Programs.h"
#include "support/Sockets.h"
#include "support/TestClient.h"

namespace {

constexpr std::int64_t kGiB = std::int64_t{1} << 30;

TEST(ProgramDownload, SlowReaderCostsTheServerNoMemory) {
  CServerProgram server;
  MakeSparseFile(server.ProjectPath("P/big.tm"), 4 * kGiB);
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

TEST(ProgramDownload, StopEndsItSoonAndTheLinkStaysUsable) {
  CServerProgram server;
  MakeSparseFile(server.ProjectPath("P/big.tm"), 4 * kGiB);
  CTestClient client(server.Port(), "127.0.0.3");
  std::string directory;
  std::chrono::steady_clock::duration best = std::chrono::hours(1);  // on a busy machine
  for (int round = 0; round < 3; ++round) {
    ASSERT_EQ(client.StartDownload({"big.tm"}, server.ProjectPath("P/")), 1);
    const float before = client.GetTrans();
    ASSERT_TRUE(WaitUntil([&] { return client.GetTrans() > before + 0.01F; }));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(client.StopTrans(), 1);
    best = std::min(best, std::chrono::steady_clock::now() - start);
    client.Finish();
    EXPECT_TRUE(client.IsConnect());
    EXPECT_EQ(client.GetPrjDir(directory), 1);
  }
  EXPECT_LT(best, std::chrono::seconds(2));
}

}  // namespace
