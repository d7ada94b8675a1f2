// Downloads from a scripted server.

#include "platform/ByteOrder.h"
#include "support/TestClient.h"

namespace {

using Statuses = std::vector<int>;

class Download : public CClientTest {
 protected:
  // Answers a request for `content` from the position that it asks for.
  void Serve(const std::string& content) {
    m_server.Answer(2504, Int64(std::ssize(content)));
    m_server.On(2505, [this, content](const std::string& request) {
      m_server.Send(2505, Int32(1));
      for (std::int64_t at = ReadInt64(request.data()); at < std::ssize(content); at += 65508) {
        m_server.Send(2506, Int64(at) + content.substr(static_cast<std::size_t>(at), 65508));
      }
      m_server.Send(2507, Int32(1));
    });
  }
};

TEST_F(Download, FilesGoOnBehindWhatIsThere) {
  const std::string content = PatternBytes(200000);
  Serve(content);
  m_client.File("begun", content.substr(0, 150000));
  EXPECT_EQ(m_client.Download({"sub/new", "begun"}), (Statuses{1, 1}));
  for (const std::string name : {"sub/new", "begun"}) {
    EXPECT_TRUE(ReadWholeFile(m_client.m_files / name) == content) << name;
  }
  EXPECT_EQ(m_server.Bodies(2504), std::vector<std::string>{"sub/new|begun|"});
  EXPECT_EQ(m_server.Bodies(2505),
            (std::vector<std::string>{Int64(0) + "sub/new", Int64(150000) + "begun"}));
  EXPECT_EQ(m_client.m_nTransState, 0);
  EXPECT_NE(m_client.m_evTransEnd->Wait(0), 0) << "only the server's 2503 sets it";
}

TEST_F(Download, FirstFailureEndsTheDownloadWithItsCode) {
  m_system.Follow(CFaultPlan().ClockFaster(20).DiskFullAfter(8000));
  const std::pair<std::vector<Packet>, int> cases[] = {
      // answers to 2505
      {{}, -25},
      {{{2507, Int32(-28)}, {2505, Int32(1)}}, 1},  // an end is a success, whatever its code
      {{{2505, Int32(-7)}}, -7},
      {{{2505, Int32(1)}}, -26},
      {{{2505, Int32(1)}, {2508, Int32(-10)}}, -10},
      {{{2506, Int64(-1)}, {2505, Int32(1)}}, -27},
      {{{2505, Int32(1)}, {2506, Int64(0) + std::string(9000, 'x')}}, -27}};
  m_server.Answer(2504, Int64(1));
  for (const auto& [answers, status] : cases) {
    m_server.On(2505, [this, sent = answers](const std::string&) {
      for (const auto& [code, body] : sent) m_server.Send(code, body);
    });
    EXPECT_EQ(m_client.Download({"a", "never"}), (Statuses{status, 1}));
    EXPECT_EQ(m_client.m_nTransState, 0);
  }
  m_system.Heal();
  Serve("0123456789");  // nothing of what failed is left
  EXPECT_EQ(m_client.Download({"b"}), Statuses{1});
  EXPECT_EQ(ReadWholeFile(m_client.m_files / "b"), "0123456789");
  EXPECT_EQ(m_client.GetTrans(), 1.0F);
  m_client.File("dir/file", "");
  EXPECT_EQ(m_client.Download({"dir"}), Statuses{-23});
  m_server.On(2504, [&](const std::string&) {
    m_client.m_pLinkInfo = nullptr;
    m_server.Send(2504, Int64(1));
  });
  EXPECT_EQ(m_client.Download({"a"}), Statuses{-24});
  m_server.Stop();
}

TEST_F(Download, CopyThatCannotBeLookedAtIsKept) {
  m_server.Answer(2504, Int64(4));
  m_server.Answer(2505, Int32(-7));
  m_client.File("kept", "kept");
  for (const auto& [failing, status] :
       {std::pair(EOperation::kQuery, -7), std::pair(EOperation::kOpen, -23)}) {
    m_system.Follow(
        CFaultPlan().Fail(failing, 1, ESystemError::kTooMany).Below(m_client.m_files.Path()));
    EXPECT_EQ(m_client.Download({"kept"}), Statuses{status});
    EXPECT_EQ(ReadWholeFile(m_client.m_files / "kept"), "kept");
  }
}

// The clock keeps its pace: a busy machine takes seconds between two packets.
// The worker is watching by then, since what comes before that starts nothing:
// up to three looks at the clock are the log's and the first one.
TEST_F(Download, EveryPacketStartsANewStallPeriod) {
  m_server.Answer(2504, Int64(3));
  ASSERT_EQ(m_client.StartDownload({"a"}), 1);
  ASSERT_TRUE(m_server.WaitFor(2505));
  const int before = m_system.ClockReads();
  ASSERT_TRUE(WaitUntil([&] { return m_system.ClockReads() >= before + 5; }));
  // Steps below the limit: a look may come when the next packet has been counted.
  for (std::int64_t i = 0; i < 6; ++i) {
    m_server.Send(2506, Int64(i) + "x");
    ASSERT_TRUE(WaitUntil([&] { return m_client.m_llTransBytes == i + 1; }));
    m_system.AdvanceClock(6);
    const int reads = m_system.ClockReads();  // the worker's: it looks at the clock
    ASSERT_TRUE(WaitUntil([&] { return m_system.ClockReads() >= reads + 2; }));
    ASSERT_FALSE(m_client.IsTransFinished());
  }
  m_system.Follow(CFaultPlan().ClockFaster(20));
  EXPECT_EQ(m_client.Finish(), Statuses{-26});
}

TEST_F(Download, FreeSpaceMustHoldTheWholeRequest) {
  const std::string drive = m_client.m_files / "new/";
  m_client.SetPrjDir(drive);
  const std::int64_t cases[][3] = {{5000000000, 5000000000, 1},
                                   {4999999999, 5000000000, -37},
                                   {-1, 0, -37},  // cannot be told
                                   {1 << 30, -1, -37}};
  for (const auto& [space, total, expected] : cases) {
    m_system.Follow(CFaultPlan().FreeSpace(space).Below(drive));
    m_server.Answer(2504, Int64(total));
    const int result = m_client.StartDownload({});
    EXPECT_EQ(result, expected) << space;
    m_client.Finish(result);
    if (result == 1) continue;
    EXPECT_EQ(m_client.m_nTransState, 2) << "the state stays";
    EXPECT_EQ(m_client.StartDownload({}), -16);
    EXPECT_EQ(m_client.m_nTransState, 0) << "until it was asked for";
  }
}

TEST_F(Download, SilentServerLeavesTheClientIdle) {
  m_system.Follow(CFaultPlan().ClockFaster(20));
  EXPECT_EQ(m_client.StartDownload({"a"}), -22);
  EXPECT_EQ(m_client.StopTrans(), 1) << "nothing to stop";
  m_server.Answer(2504, Int64(1));
  m_server.Silent(2503);
  ASSERT_EQ(m_client.StartDownload({"a"}), 1);
  ASSERT_TRUE(m_server.WaitFor(2505));
  m_client.m_evTransEnd->SetKQEvent();  // by an earlier transfer
  EXPECT_EQ(m_client.StopTrans(), 0) << "nobody confirmed";
  EXPECT_EQ(m_client.Finish(), Statuses{1});
}

// The confirmation may come before StopTrans has begun to wait for it.
TEST_F(Download, ConfirmationOfAStopIsNeverLost) {
  m_system.Follow(CFaultPlan().ClockFaster(10));
  const auto host = [] {
    CFakeServer server;
    server.Answer(2504, Int64(100));
    server.On(2505, [&](const std::string&) {
      server.Send(2505, Int32(1));
      server.Send(2506, Int64(0) + "begun");
    });
    CTestClient client(server.Port());
    for (int k = 0; k < 50; ++k) {
      ASSERT_EQ(client.StartDownload({"a"}), 1);
      while (client.m_llTransBytes == 0) std::this_thread::yield();
      ASSERT_EQ(client.StopTrans(), 1) << "stop " << k;
      client.Finish();
    }
  };
  std::vector<std::thread> hosts;
  for (int i = 0; i < 10; ++i) hosts.emplace_back(host);
  for (std::thread& each : hosts) each.join();
}

TEST_F(Download, ThirdCallTakesOverFromARunningWorker) {
  m_server.Answer(2504, Int64(10));
  ASSERT_EQ(m_client.StartDownload({"first", "never"}), 1);
  ASSERT_TRUE(m_server.WaitFor(2505));
  EXPECT_EQ(m_client.StartDownload({"b"}), -16);
  Serve("0123456789");
  EXPECT_EQ(m_client.Download({"b", "c"}), (Statuses{1, 1}));
  EXPECT_EQ(ReadWholeFile(m_client.m_files / "b"), "0123456789");
  EXPECT_EQ(ReadWholeFile(m_client.m_files / "c"), "0123456789");
}

TEST_F(Download, HandOverWaitsForAWriteUpToItsLimit) {
  m_system.Follow(CFaultPlan().ClockFaster(1000));
  m_client.m_bWriting = true;
  EXPECT_FALSE(m_client.StopReceiveData());
  m_client.CloseFile();
  EXPECT_EQ(m_system.SleptMilliseconds(), 2 * 5070);
  m_client.m_bWriting = false;
  EXPECT_TRUE(m_client.StopReceiveData());
  EXPECT_EQ(m_system.SleptMilliseconds(), 2 * 5070 + 20);
}

}  // namespace
