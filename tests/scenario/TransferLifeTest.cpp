// Real client, real server: transfers whose ends are cut, stopped, taken over
// and destroyed while they run.

#include <random>

#include "platform/ByteOrder.h"
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

TEST_F(TransferLife, EitherEndMayStopOrDieInTheMiddleOfAnUpload) {
  m_system.Follow(CFaultPlan().ClockFaster(50));
  for (int round = 0; round < 8; ++round) {
    auto server = std::make_unique<CTestServer>(m_dir);
    ASSERT_TRUE(server->Init(0));
    auto client = std::make_unique<CTestClient>(server->Port());
    MakeSparseFile(client->m_files / "target.dat", kLargeBytes);
    ASSERT_EQ(client->StartUpload({"target.dat"}, m_dir.Path()), RESULT_OK);
    ASSERT_TRUE(WaitUntil([&] { return client->GetTrans() > 0.01F * static_cast<float>(round); }));
    switch (round % 4) {
      case 0:
        client->Stop();
        EXPECT_EQ(client->Finish(), std::vector<int>{ERROR_CODE_CLIENT_SENDDATA});
        break;
      case 1:
        client.reset();
        EXPECT_TRUE(WaitUntil([&] { return server->Links() == 0; }));
        break;
      case 2:
        server->Stop();
        client->Finish();
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

TEST_F(TransferLife, AStoppedDownloadEndsSoonAndTheLinkStaysUsable) {
  MakeSparseFile(m_dir / "large.dat", 8 * kLargeBytes);
  CTestClient client(Port(), "127.4.0.8");
  std::string dir;
  for (int round = 0; round < 3; ++round) {
    ASSERT_EQ(client.StartDownload({"large.dat"}, m_dir.Path()), RESULT_OK);
    const float before = client.GetTrans();
    ASSERT_TRUE(WaitUntil([&] { return client.GetTrans() > before + 0.01F; }));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(client.StopTrans(), 1);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
    EXPECT_TRUE(WaitUntil([&] { return client.IsTransFinished(); }));
    EXPECT_EQ(client.GetPrjDir(dir), RESULT_OK);
  }
}

TEST_F(TransferLife, GarbageHarmsOnlyTheLinkItComesFrom) {
  CTestClient client(Port(), "127.4.0.7");
  std::mt19937 random(20);
  std::string dir;
  for (int i = 0; i < 40; ++i) {
    const CRawClient raw(Port(), "127.4.1." + std::to_string(i + 1));
    std::string bytes = MakePacket(2500 + i % 15);
    if (i % 2 == 0) {
      bytes[static_cast<std::size_t>(i / 2 % 4)] ^= 1;  // marker
      raw.Send(bytes);
      EXPECT_TRUE(raw.WaitClosed());
    } else {  // a part of what it announces
      WriteUInt32(bytes.data() + 12, static_cast<std::uint32_t>(random()) >> 1 & 0x7fffff00U);
      raw.Send(bytes + PatternBytes(random() % 100000));
    }
    EXPECT_EQ(client.GetPrjDir(dir), RESULT_OK);
  }
}

}  // namespace
