// Uploads against a scripted server.

#include <filesystem>
#include <future>

#include "protocol/MessageCodes.h"
#include "support/TestClient.h"

namespace {

const std::string kPrepared = Int32(1) + Int64(0);

// A file of zeros that no queue or socket buffer can hold.
void LargeFile(CTestClient& client, const std::string& name) {
  std::filesystem::resize_file(client.File(name, ""), 32 << 20);
}

TEST(Upload, OrdinaryFileIsAnnouncedStreamedAndEnded) {
  CFakeServer server;
  server.Answer(2500, Int32(1) + Int64(77));  // what the server holds is ignored
  CTestClient client(server);
  const std::string data = PatternBytes(131017);
  client.File("a.dat", data);
  client.File("empty", "");
  EXPECT_EQ(client.Upload({"a.dat", "empty"}), (std::vector<int>{1, 1}));
  EXPECT_EQ(client.GetTrans(), 1.0F);
  EXPECT_EQ(client.m_nTransState, 0);
  EXPECT_TRUE(client.m_bStop);
  EXPECT_EQ(client.m_evTransEnd->Wait(0), 0);
  const std::vector<CFakeServer::Packet> expected = {
      {1, ""},
      {2500, "\1a.dat"},
      {2501, Int64(0) + data.substr(0, 65508)},
      {2501, Int64(65508) + data.substr(65508, 65508)},
      {2501, Int64(131016) + data.substr(131016)},
      {2502, ""},
      {2500, "\1empty"},
      {2502, ""}};
  EXPECT_TRUE(server.Packets() == expected);
}

TEST(Upload, MeasurementFileGoesOnWhereTheServerEnds) {
  CFakeServer server;
  server.Answer(2500, Int32(1) + Int64(60000));
  CTestClient client(server);
  const std::string data = PatternBytes(60010);
  client.File("Run.Rs422", data);
  client.File("run.tmx", data);
  EXPECT_EQ(client.Upload({"Run.Rs422", "run.tmx"}), (std::vector<int>{1, 1}));
  EXPECT_EQ(client.GetTrans(), 1.0F);
  EXPECT_EQ(server.Bodies(2509), std::vector<std::string>{"Run.Rs422"});
  EXPECT_EQ(server.Bodies(2500)[0], std::string("\0Run.Rs422", 10));
  EXPECT_TRUE(server.Bodies(2501) ==
              (std::vector<std::string>{Int64(60000) + data.substr(60000), Int64(0) + data}));
}

TEST(Upload, FirstFailureEndsTheUploadWithItsCode) {
  CScopedSystem system(CFaultPlan().ClockFaster(100));
  struct SCase {
    int m_nStatus;
    std::string m_strFile;
    std::function<void(CFakeServer&, CTestClient&)> m_plan;
  };
  const std::vector<SCase> cases = {
      {-17, "missing", [](CFakeServer&, CTestClient&) {}},
      {-8, "a.dat", [](CFakeServer& s, CTestClient&) { s.Answer(2500, Int32(-8) + Int64(0)); }},
      {-19, "a.dat", [](CFakeServer& s, CTestClient&) { s.Silent(2500); }},
      {-21, "a.dat", [](CFakeServer& s, CTestClient&) { s.Silent(2502); }},
      {-10, "a.dat",
       [](CFakeServer& s, CTestClient&) {
         s.On(2501, [&s](const std::string&) { s.Send(2508, Int32(-10)); });
       }},
      {-20, "a.dat",
       [](CFakeServer& s, CTestClient& c) {
         s.On(2500, [&](const std::string&) {
           c.m_pLinkInfo = nullptr;
           s.Send(2500, kPrepared);
         });
       }},
      {-18, "a.tm",
       [](CFakeServer& s, CTestClient& c) {
         s.On(2509, [&](const std::string&) {
           c.m_pLinkInfo = nullptr;
           s.Send(2509, Int32(1));
         });
       }},
      {-33, "a.tm", [](CFakeServer& s, CTestClient&) { s.Answer(2500, Int32(1) + Int64(-5)); }},
      {-34, "a.tm", [](CFakeServer& s, CTestClient&) { s.Answer(2500, Int32(1) + Int64(500)); }},
      {-34, "a.tm",
       [](CFakeServer& s, CTestClient&) { s.Answer(2500, Int32(1) + Int64(INT64_MAX)); }},
  };
  for (const SCase& each : cases) {
    CFakeServer server;
    CTestClient client(server);
    client.File("a.dat", "0123456789");
    client.File("a.tm", "0123456789");
    each.m_plan(server, client);
    EXPECT_EQ(client.Upload({each.m_strFile, "never"}), (std::vector<int>{each.m_nStatus, 1}));
    EXPECT_EQ(client.m_nTransState, 0);
    client.Stop();  // plans refer to the client
  }
}

TEST(Upload, NamesEndAt1023Bytes) {
  CFakeServer server;
  CTestClient client(server);
  EXPECT_EQ(client.PrepareTransFile(std::string(1024, 'n'), true), -18);
  EXPECT_EQ(client.PrepareTransFile(std::string(1023, 'n'), true), 1);
  EXPECT_EQ(server.Bodies(2500), std::vector<std::string>{"\1" + std::string(1023, 'n')});
}

TEST(Upload, EveryStartFailureLeavesTheClientIdle) {
  CTestClient lonely;
  EXPECT_EQ(lonely.UpdateFileToDataService(""), -14);
  CFakeServer server;
  CTestClient client(server);
  {
    CScopedSystem system(CFaultPlan().NoThreads());
    server.Answer(2504, Int64(0));
    EXPECT_EQ(client.UpdateFileToDataService(client.Request({"a"})), -18);
    EXPECT_EQ(client.m_evTransEnd->Wait(0), 0);
    EXPECT_EQ(client.DownFileFromDataService(client.Request({"a"})), -18);
    EXPECT_TRUE(client.IsTransFinished());
  }
  EXPECT_EQ(client.m_nTransState, 0);
  client.m_nTransState = 2;
  EXPECT_EQ(client.UpdateFileToDataService(""), -16);
  EXPECT_EQ(client.Upload({}), std::vector<int>{});
}

// -15 clears the state, so the third call gets through while the first
// worker still runs; its records, file and flags must stay the new run's.
TEST(Upload, ThirdCallTakesOverFromARunningWorker) {
  CFakeServer server;
  CTestClient client(server);
  LargeFile(client, "first");
  client.File("a", "aaaa");
  client.File("b", "bbbb");
  for (const int wait : {2501, 2502}) {  // while it streams; while it waits for the end
    server.Silent(2502);
    const std::size_t before = server.Bodies(wait).size();
    ASSERT_EQ(client.UpdateFileToDataService(client.Request({wait == 2501 ? "first" : "a"})), 1);
    ASSERT_TRUE(server.WaitFor(wait, before + 1));
    EXPECT_EQ(client.UpdateFileToDataService(client.Request({"b"})), -15);
    EXPECT_EQ(client.m_nTransState, 0);
    EXPECT_FALSE(client.IsTransFinished());
    server.Answer(2502, "");
    EXPECT_EQ(client.Upload({"b", "a"}), (std::vector<int>{1, 1}));
    EXPECT_EQ(client.m_TotalTransBytes, 8);
    EXPECT_EQ(server.Bodies(2500).back(), "\1a");
  }
}

TEST(Upload, StopAgainstAStalledServerQueuesTheBlockInHand) {
  CScopedSystem system(CFaultPlan().ClockFaster(100));
  CFakeServer server;
  std::promise<void> release;
  server.On(2501, [gate = release.get_future().share()](const std::string&) { gate.wait(); });
  CTestClient client(server);
  LargeFile(client, "a");
  ASSERT_EQ(client.UpdateFileToDataService(client.Request({"a"})), 1);
  ASSERT_TRUE(server.WaitFor(2501));
  EXPECT_EQ(client.StopTrans(), 0) << "the end waits 30 s for its confirmation";
  EXPECT_TRUE(client.WaitFinished());
  EXPECT_EQ(client.Statuses(), std::vector<int>{-21});
  release.set_value();
  ASSERT_TRUE(server.WaitFor(2502));
  std::size_t bytes = 0;
  for (const std::string& body : server.Bodies(2501)) bytes += body.size() - 8;
  EXPECT_EQ(bytes % (1 << 20), 0U) << "whole blocks only";
  EXPECT_LT(bytes, 32U << 20);
  EXPECT_EQ(client.m_llTransBytes, static_cast<std::int64_t>(bytes));
  EXPECT_EQ(client.StopTrans(), 1);
}

TEST(Upload, ClientCanBeDestroyedAtAnyPoint) {
  for (const int at : {2500, 2501, 2502}) {
    CFakeServer server;
    std::promise<void> release;
    server.On(at, [gate = release.get_future().share()](const std::string&) { gate.wait(); });
    {
      CTestClient client(server);
      LargeFile(client, "large");
      client.File("small", "x");
      const std::string name = at == 2501 ? "large" : "small";
      ASSERT_EQ(client.UpdateFileToDataService(client.Request({name})), 1);
      ASSERT_TRUE(server.WaitFor(at));
    }
    release.set_value();
  }
}

TEST(Upload, ServerThatDiesAmidTheStreamEndsTheUpload) {
  CFakeServer server;
  CTestClient client;
  for (int i = 0; i < 30; ++i) {
    std::atomic<int> left = i;
    server.On(2501, [&](const std::string&) {
      if (left-- == 0) server.Drop();
    });
    ASSERT_TRUE(client.Connect("127.0.0.1", server.Port()));
    LargeFile(client, "a");
    const std::vector<int> statuses = client.Upload({"a"});
    // Noticed between two blocks it counts as a stop.
    EXPECT_TRUE(statuses == std::vector<int>{-20} || statuses == std::vector<int>{1});
    while (client.IsConnect()) std::this_thread::yield();
    EXPECT_LT(client.GetTrans(), 1.0F);
  }
}

}  // namespace
