// Several calls at once: of one workstation, which take turns, and of two that
// send one project, of which one gives way.

#include "support/Inventories.h"
#include "support/Programs.h"
#include "support/TestServer.h"
#include "transfer/ProjectCheck.h"
#include "transfer/ProjectClient.h"

namespace {

class ProgramCalls : public testing::Test {
 protected:
  CServerProgram m_server;
  const CWorkstation m_station{m_server.Port()};
  const CWorkstation m_other{m_server.Port(), "127.0.0.3"};
  CTempDirectory m_local;

  // Sends a big file, and halts somebody in the middle of it.
  std::unique_ptr<CProgram> StartAndHalt(bool server) {
    MakeSparseFile(m_local / "P/big.tm", 320 * kMiB);
    auto put = m_station.Start({"put", m_local / "P"});
    EXPECT_TRUE(WaitUntil([&] { return FileSize(m_server.ProjectPath("P/big.tm")) > kMiB; }));
    server ? m_server.Process().Signal(SIGSTOP) : put->Signal(SIGSTOP);
    EXPECT_TRUE(put->IsRunning()) << put->Error();
    return put;
  }
};

TEST_F(ProgramCalls, ASecondCallOfAWorkstationWaitsForTheFirst) {
  const auto first = StartAndHalt(true);
  const auto refused = m_station.Run({"--no-wait", "ls"});
  EXPECT_EQ(refused->Wait(), 1);
  EXPECT_TRUE(Holds(refused->Error(), "kqft put " + (m_local / "P") + " (pid "))
      << refused->Error();
  const auto tired = m_station.Start({"ls"});
  const auto second = m_station.Start({"put", "--json", m_local / "P"});
  for (const CProgram* waiting : {&*tired, &*second}) {
    EXPECT_TRUE(WaitUntil([&] { return Holds(waiting->Error(), "waiting for kqft put "); }));
  }
  tired->Signal(SIGINT);
  EXPECT_EQ(tired->Wait(), 130);
  EXPECT_TRUE(first->IsRunning());
  m_server.Process().Signal(SIGCONT);
  EXPECT_EQ(first->Wait(), 0) << first->Error();
  EXPECT_FALSE(Holds(first->Error(), "trying again")) << first->Error();
  EXPECT_EQ(second->Wait(), 0) << second->Error();
  EXPECT_TRUE(Holds(second->Output(), "\"bytes_moved\":0,")) << second->Output();
}

TEST_F(ProgramCalls, WhatADeadCallLeftHoldsUpOtherWorkstationsOnly) {
  const auto killed = StartAndHalt(false);
  killed->Signal(SIGKILL);
  killed->Wait();
  const auto refused = m_other.Run({"put", m_local / "P"});
  EXPECT_EQ(refused->Wait(), 1);
  EXPECT_TRUE(Holds(refused->Error(), "P: is being sent by ")) << refused->Error();
  EXPECT_TRUE(Holds(refused->Error(), "Z); --take-over goes on")) << refused->Error();
  EXPECT_LT(FileSize(m_server.ProjectPath("P/big.tm")), 320 * kMiB);
  EXPECT_EQ(m_station.Run({"put", m_local / "P"})->Wait(), 0);  // what it left itself
  EXPECT_EQ(m_other.Run({"put", m_local / "P"})->Wait(), 0);
}

TEST_F(ProgramCalls, WhoWasTakenOverEndsWithoutAnInventory) {
  const auto first = StartAndHalt(false);
  WriteWholeFile(m_local / "Q/second.txt", "second");
  EXPECT_EQ(m_other.Run({"put", "--take-over", "--project", "P", m_local / "Q"})->Wait(), 0);
  first->Signal(SIGCONT);
  EXPECT_EQ(first->Wait(), 1);
  EXPECT_TRUE(Holds(first->Error(), "who is sending it is gone")) << first->Error();
  CInventory inventory;
  EXPECT_EQ(ReadInventory(m_server.ProjectPath("P"), inventory), "");
  EXPECT_TRUE(inventory.m_head.m_bComplete && inventory.Find("second.txt")->m_bDigest);
  EXPECT_TRUE(inventory.Find("big.tm") == nullptr || !inventory.Find("big.tm")->m_bDigest);
}

TEST_F(ProgramCalls, AProjectThatTheServerDoesNotListIsNamed) {
  WriteWholeFile(m_local / "P/a.txt", "a");
  const auto put = m_station.Run({"put", "--json", m_local / "P"});
  EXPECT_EQ(put->Wait(), 0);
  EXPECT_TRUE(Holds(put->Error(), "P: the server does not list it")) << put->Error();
  EXPECT_TRUE(Holds(put->Output(), "\"unlisted\":[{\"name\":\"P\"}]")) << put->Output();
  WriteWholeFile(m_local / "Q/Q.kqsln", "q");
  EXPECT_EQ(m_station.Run({"put", m_local / "Q"})->Error(), "");
}

TEST_F(ProgramCalls, TheFirstConnectionIsTriedAgain) {
  WriteWholeFile(m_local / "P/P.kqsln", "p");
  m_server.Process().Signal(SIGKILL);
  m_server.Process().Wait();
  const auto put = m_station.Start({"put", "--retries", "0", "--retry-for", "1m", m_local / "P"});
  EXPECT_TRUE(WaitUntil([&] { return Holds(put->Error(), "trying again in 1 s: "); }));
  m_server.Start();
  EXPECT_EQ(put->Wait(), 0) << put->Error();
}

// Holds whoever may send until another one has given way.
struct CMeeting : ITransferObserver {
  void OnPlanned(std::size_t, std::int64_t) override {
    ++m_nSending;
    WaitUntil([this] { return m_nEnded > 0 || m_nSending > 1; });
  }
  std::atomic<int> m_nSending{0};
  std::atomic<int> m_nEnded{0};
};

class SeveralCalls : public CServerTest {};

TEST_F(SeveralCalls, OfTwoWorkstationsAtOnceOneGivesWay) {
  const char* const rounds = std::getenv("KQFT_MEETINGS");
  ASSERT_TRUE(m_server.Init(0));
  const CTempDirectory local;
  for (int i = 0; i < 2; ++i) {
    WriteWholeFile(local / (std::to_string(i) + "/a.txt"), std::to_string(i));
  }
  for (int round = rounds == nullptr ? 20 : std::atoi(rounds); round > 0; --round) {
    CMeeting meeting;
    std::atomic<int> ready{0};
    STransferResult results[2];
    std::vector<std::thread> stations;
    for (int i = 0; i < 2; ++i) {
      stations.emplace_back([&, i] {
        CProjectClient client(
            {"127.0.0.1", m_server.Port(), "127.0.0." + std::to_string(i + 2), local.Path()},
            &meeting);
        SPutRequest request;
        request.m_vecPaths = {local / std::to_string(i)};
        request.m_strProject = "P" + std::to_string(round);
        client.Connect();
        for (++ready; ready < 2;) std::this_thread::yield();
        results[i] = client.Put(request);
        ++meeting.m_nEnded;
      });
    }
    for (std::thread& station : stations) station.join();
    const int first = results[0].IsDone() ? 0 : 1;
    EXPECT_TRUE(results[first].IsDone()) << results[0].m_strWhy << "\n" << results[1].m_strWhy;
    EXPECT_EQ(meeting.m_nSending, 1) << "of round " << round;
    EXPECT_TRUE(Holds(results[1 - first].m_strWhy, "is being sent by ")) << results[1].m_strWhy;
    EXPECT_EQ(ReadWholeFile(m_dir / ("P" + std::to_string(round) + "/a.txt")),
              std::to_string(first));
  }
}

}  // namespace
