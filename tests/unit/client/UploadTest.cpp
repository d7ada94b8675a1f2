// Uploads against a scripted server.

#include <filesystem>
#include <future>

#include "protocol/MessageCodes.h"
#include "support/TestClient.h"

namespace {

using Statuses = std::vector<int>;

// A file of zeros that no queue or socket buffer can hold.
void LargeFile(CTestClient& client, const std::string& name) {
  std::filesystem::resize_file(client.File(name, ""), 32 << 20);
}

TEST(Upload, FilesAreAnnouncedStreamedAndEnded) {
  CFakeServer server;
  server.Answer(2500, Int32(1) + Int64(60000));  // for an ordinary file ignored
  CTestClient client(server);
  const std::string data = PatternBytes(131017);
  client.File("a.tmx", data);
  client.File("empty", "");
  client.File("b.Rs422", data.substr(0, 60010));
  EXPECT_EQ(client.Upload({"a.tmx", "empty", "b.Rs422"}), (Statuses{1, 1, 1}));
  EXPECT_EQ(client.GetTrans(), 1.0F);
  EXPECT_EQ(client.m_nTransState, 0);
  EXPECT_TRUE(client.m_bStop);
  EXPECT_EQ(client.m_evTransEnd->Wait(0), 0);
  const std::vector<CFakeServer::Packet> expected = {
      {1, ""},
      {2500, "\1a.tmx"},
      {2501, Int64(0) + data.substr(0, 65508)},
      {2501, Int64(65508) + data.substr(65508, 65508)},
      {2501, Int64(131016) + data.substr(131016)},
      {2502, ""},
      {2500, "\1empty"},
      {2502, ""},
      {2509, "b.Rs422"},
      {2500, std::string("\0b.Rs422", 8)},
      {2501, Int64(60000) + data.substr(60000, 10)},
      {2502, ""}};
  EXPECT_TRUE(server.Packets() == expected);
}

TEST(Upload, FirstFailureEndsTheUploadWithItsCode) {
  CScopedSystem system(CFaultPlan().ClockFaster(100));
  const auto run = [](const std::string& file, auto&& plan) {
    CFakeServer server;
    CTestClient client(server);
    client.File("a", "0123456789");
    client.File("a.tm", "0123456789");
    plan(server, client);
    const Statuses statuses = client.Upload({file, "never"});
    EXPECT_EQ(client.m_nTransState, 0);
    EXPECT_EQ(statuses.back(), 1) << "not reached";
    server.Stop();  // plans refer to the client
    return statuses.front();
  };
  const auto answer = [](int code, const std::string& body) {
    return [=](CFakeServer& server, CTestClient&) { server.Answer(code, body); };
  };
  const auto silent = [](int code) {
    return [=](CFakeServer& server, CTestClient&) { server.Silent(code); };
  };
  const auto loseLink = [](int code, const std::string& body) {
    return [=](CFakeServer& server, CTestClient& client) {
      server.On(code, [=, &server, &client](const std::string&) {
        client.m_pLinkInfo = nullptr;
        server.Send(code, body);
      });
    };
  };
  EXPECT_EQ(run("missing", silent(0)), -17);
  EXPECT_EQ(run("a", answer(2500, Int32(-8) + Int64(0))), -8);
  EXPECT_EQ(run("a", silent(2500)), -19);
  EXPECT_EQ(run("a", silent(2502)), -21);
  EXPECT_EQ(run("a", loseLink(2500, Int32(1) + Int64(0))), -20);
  EXPECT_EQ(run("a.tm", loseLink(2509, Int32(1))), -18);
  EXPECT_EQ(run("a.tm", answer(2500, Int32(1) + Int64(-5))), -33);
  EXPECT_EQ(run("a.tm", answer(2500, Int32(1) + Int64(500))), -34) << "the server has more";
  EXPECT_EQ(run("a.tm", answer(2500, Int32(1) + Int64(INT64_MAX))), -34);
  const auto refuseData = [](CFakeServer& server, CTestClient&) {
    server.On(2501, [&](const std::string&) { server.Send(2508, Int32(-10)); });
  };
  EXPECT_EQ(run("a", refuseData), -10);
  EXPECT_EQ(run(std::string(1024, 'n'), silent(0)), -18);
}

TEST(Upload, EveryFailedStartLeavesTheClientIdle) {
  CFakeServer server;
  server.Answer(2504, Int64(0));
  CTestClient client(server);
  ASSERT_TRUE(server.WaitFor(NET_COMMAND_CONNECT));  // its threads are up
  {
    CScopedSystem system(CFaultPlan().NoThreads());
    EXPECT_EQ(client.StartUpload({"a"}), -18);
    EXPECT_EQ(client.m_evTransEnd->Wait(0), 0);
    EXPECT_EQ(client.StartDownload({"a"}), -18);
  }
  EXPECT_TRUE(client.IsTransFinished());
  EXPECT_EQ(client.m_nTransState, 0);
  client.m_nTransState = 2;
  EXPECT_EQ(client.StartUpload({}), -16);
  EXPECT_EQ(client.Upload({}), Statuses{});
}

// -15 clears the state, so the third call gets through while the first
// worker still runs; records, file and flags must stay the new run's.
TEST(Upload, ThirdCallTakesOverFromARunningWorker) {
  CFakeServer server;
  CTestClient client(server);
  LargeFile(client, "large");
  client.File("a", "aaaa");
  client.File("b", "bbbb");
  for (const int busyWith : {2501, 2502}) {  // streaming; waiting for the end
    server.Silent(2502);
    const std::size_t before = server.Bodies(busyWith).size();
    ASSERT_EQ(client.StartUpload({busyWith == 2501 ? "large" : "a"}), 1);
    ASSERT_TRUE(server.WaitFor(busyWith, before + 1));
    EXPECT_EQ(client.StartUpload({"b"}), -15);
    EXPECT_EQ(client.m_nTransState, 0);
    EXPECT_FALSE(client.IsTransFinished());
    server.Answer(2502, "");
    EXPECT_EQ(client.Upload({"b", "a"}), (Statuses{1, 1}));
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
  ASSERT_EQ(client.StartUpload({"a"}), 1);
  ASSERT_TRUE(server.WaitFor(2501));
  EXPECT_EQ(client.StopTrans(), 0) << "the end waits 30 s for its confirmation";
  EXPECT_EQ(client.Finish(), Statuses{-21});
  EXPECT_EQ(client.StopTrans(), 1);
  release.set_value();
  ASSERT_TRUE(server.WaitFor(2502));
  std::int64_t bytes = 0;
  for (const std::string& body : server.Bodies(2501)) bytes += std::ssize(body) - 8;
  EXPECT_EQ(bytes % (1 << 20), 0) << "whole blocks only";
  EXPECT_LT(bytes, 32 << 20);
  EXPECT_EQ(client.m_llTransBytes, bytes);
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
      ASSERT_EQ(client.StartUpload({at == 2501 ? "large" : "small"}), 1);
      ASSERT_TRUE(server.WaitFor(at));
    }
    release.set_value();
  }
}

TEST(Upload, ServerThatDiesAmidTheStreamEndsTheUpload) {
  std::atomic<int> left = 0;
  CFakeServer server;
  server.On(2501, [&](const std::string&) {
    if (left-- == 0) server.Drop();
  });
  CTestClient client;
  LargeFile(client, "a");
  for (int i = 0; i < 30; ++i) {
    left = i;
    ASSERT_TRUE(client.Connect("127.0.0.1", server.Port()));
    const Statuses statuses = client.Upload({"a"});
    // Noticed between two blocks it counts as a stop.
    EXPECT_TRUE(statuses == Statuses{-20} || statuses == Statuses{1});
    EXPECT_LT(client.GetTrans(), 1.0F);
    while (client.IsConnect()) std::this_thread::yield();
  }
}

}  // namespace
