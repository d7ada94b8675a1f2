// Downloads from a scripted server.

#include <future>

#include "platform/ByteOrder.h"
#include "support/TestClient.h"

namespace {

using Statuses = std::vector<int>;
using Packets = std::vector<CFakeServer::Packet>;

const std::string kPrefix = "CKQFileTransServiceClient ReceiveSingleFile ";

// Answers a request for `content` from the position that it asks for.
void Serve(CFakeServer& server, const std::string& content, bool answerFirst = true) {
  server.On(2505, [&server, content, answerFirst](const std::string& request) {
    if (answerFirst) server.Send(2505, Int32(1));
    for (auto at = static_cast<std::size_t>(ReadInt64(request.data())); at < content.size();
         at += 65508) {
      server.Send(2506, Int64(static_cast<std::int64_t>(at)) + content.substr(at, 65508));
    }
    server.Send(2507, Int32(answerFirst ? 1 : -28));
    if (!answerFirst) server.Send(2505, Int32(1));
  });
}

TEST(Download, FilesGoOnBehindWhatIsThere) {
  CFakeServer server;
  const std::string content = PatternBytes(200000);
  Serve(server, content);
  server.Answer(2504, Int64(600000));
  CTestClient client(server);
  client.File("begun", content.substr(0, 150000));
  client.File("whole", content);
  EXPECT_EQ(client.Download({"sub/new", "begun", "whole"}), (Statuses{1, 1, 1}));
  EXPECT_EQ(client.GetTrans(), 1.0F);
  for (const std::string name : {"sub/new", "begun", "whole"}) {
    EXPECT_TRUE(ReadWholeFile(client.m_files / name) == content) << name;
  }
  EXPECT_EQ(server.Bodies(2504), std::vector<std::string>{"sub/new|begun|whole|"});
  EXPECT_EQ(server.Bodies(2505),
            (std::vector<std::string>{Int64(0) + "sub/new", Int64(150000) + "begun",
                                      Int64(200000) + "whole"}));
  EXPECT_EQ(client.m_nTransState, 0);
  EXPECT_NE(client.m_evTransEnd->Wait(0), 0) << "only the server's 2503 sets it";
  EXPECT_NE(client.Log().find(kPrefix + " CreateAllDir \n"), std::string::npos);
}

TEST(Download, EndBeforeTheAnswerIsKept) {
  CFakeServer server;
  const std::string content = PatternBytes(100000);
  Serve(server, content, false);
  server.Answer(2504, Int64(100000));
  CTestClient client(server);
  EXPECT_EQ(client.Download({"a"}), Statuses{1}) << "an end is a success, whatever its code";
  EXPECT_EQ(client.m_nServerErrorCode, -28);
  EXPECT_TRUE(ReadWholeFile(client.m_files / "a") == content);
}

TEST(Download, FirstFailureEndsTheDownloadWithItsCode) {
  CScopedSystem system(CFaultPlan().ClockFaster(100).DiskFullAfter(8000));
  struct SCase {
    Packets m_answers;  // to 2505
    int m_nStatus;
    std::string m_strLog;
  };
  const std::vector<SCase> cases = {
      {{}, -25, " ERROR_CODE_WAIT_SERVERRESPOND_DOWN \n"},
      {{{2505, Int32(-7)}}, -7, "m_nErrorCode1 = -7  \n"},
      {{{2505, Int32(1)}}, -26, "m_nErrorCode2 = 1 \n "},
      {{{2505, Int32(1)}, {2508, Int32(-10)}}, -10, "m_nErrorCode2 = 1 \n "},
      {{{2506, Int64(-1)}, {2505, Int32(1)}}, -27, "m_nErrorCode2 = -27 \n "},
      {{{2505, Int32(1)}, {2506, Int64(0) + std::string(9000, 'x')}}, -27, ""}};
  for (const SCase& each : cases) {
    CFakeServer server;
    server.Answer(2504, Int64(1));
    server.On(2505, [&](const std::string&) {
      for (const auto& [code, body] : each.m_answers) server.Send(code, body);
    });
    CTestClient client(server);
    EXPECT_EQ(client.Download({"a", "never"}), (Statuses{each.m_nStatus, 1}));
    EXPECT_EQ(client.m_nTransState, 0);
    if (each.m_strLog.empty()) continue;
    EXPECT_NE(client.Log().find(kPrefix + each.m_strLog), std::string::npos) << client.Log();
  }
}

TEST(Download, FileThatCannotBeRequestedOrOpenedFails) {
  CFakeServer server;
  server.Answer(2504, Int64(1));
  CTestClient client(server);
  client.File("dir/file", "");
  EXPECT_EQ(client.Download({"dir"}), Statuses{-23});
  server.On(2504, [&](const std::string&) {
    client.m_pLinkInfo = nullptr;
    server.Send(2504, Int64(1));
  });
  EXPECT_EQ(client.Download({"a"}), Statuses{-24});
  const std::string log = client.Log();
  EXPECT_NE(log.find("ERROR_CODE_CLIENT_CREATEFILE " + client.m_strPrjDir + " - dir \n"),
            std::string::npos);
  EXPECT_NE(log.find(kPrefix + " ERROR_CODE_CLIENT_SENDFILECMD \n"), std::string::npos);
  server.Stop();
}

TEST(Download, FreeSpaceMustHoldTheWholeRequest) {
  const auto downloadWith = [](const CFaultPlan& plan, std::int64_t total) {
    CScopedSystem system(plan);
    CFakeServer server;
    server.Answer(2504, Int64(total));
    CTestClient client(server);
    const int result = client.StartDownload({});
    if (result == 1) return client.Finish().empty() ? 1 : 0;
    EXPECT_EQ(client.m_nTransState, 2) << "the state stays";
    EXPECT_EQ(client.StartDownload({}), -16);
    EXPECT_EQ(client.m_nTransState, 0) << "until it was asked for";
    return result;
  };
  EXPECT_EQ(downloadWith(CFaultPlan().FreeSpace(5000000000), 5000000000), 1);
  EXPECT_EQ(downloadWith(CFaultPlan().FreeSpace(4999999999), 5000000000), -37);
  EXPECT_EQ(downloadWith(CFaultPlan().FreeSpaceUnknown(), 0), -37);
  EXPECT_EQ(downloadWith(CFaultPlan().FreeSpace(1 << 30), -1), -37);
}

TEST(Download, SilentServerLeavesTheClientIdle) {
  CScopedSystem system(CFaultPlan().ClockFaster(100));
  CFakeServer server;
  CTestClient client(server);
  EXPECT_EQ(client.StartDownload({"a"}), -22);
  EXPECT_EQ(client.StopTrans(), 1) << "nothing to stop";
  server.Answer(2504, Int64(1));
  server.Silent(2503);
  ASSERT_EQ(client.StartDownload({"a"}), 1);
  ASSERT_TRUE(server.WaitFor(2505));
  EXPECT_EQ(client.StopTrans(), 0) << "nobody confirmed";
  EXPECT_EQ(client.Finish(), Statuses{1});
}

// The confirmation may come before StopTrans has begun to wait for it.
TEST(Download, ConfirmationOfAStopIsNeverLost) {
  CScopedSystem system(CFaultPlan().ClockFaster(20));
  std::vector<std::thread> hosts;
  for (int i = 0; i < 10; ++i) {
    hosts.emplace_back([] {
      CFakeServer server;
      server.Answer(2504, Int64(100));
      server.On(2505, [&](const std::string&) {
        server.Send(2505, Int32(1));
        server.Send(2506, Int64(0) + "begun");
      });
      CTestClient client(server);
      for (int k = 0; k < 100; ++k) {
        ASSERT_EQ(client.StartDownload({"a"}), 1);
        while (client.m_llTransBytes == 0) std::this_thread::yield();
        ASSERT_EQ(client.StopTrans(), 1) << "stop " << k;
        client.Finish();
      }
    });
  }
  for (std::thread& host : hosts) host.join();
}

TEST(Download, ThirdCallTakesOverFromARunningWorker) {
  CScopedSystem system(CFaultPlan().ClockFaster(20));
  CFakeServer server;
  server.Answer(2504, Int64(10));
  CTestClient client(server);
  ASSERT_EQ(client.StartDownload({"first", "never"}), 1);
  ASSERT_TRUE(server.WaitFor(2505));
  EXPECT_EQ(client.StartDownload({"b"}), -16);
  Serve(server, "0123456789");
  EXPECT_EQ(client.Download({"b", "c"}), (Statuses{1, 1}));
  EXPECT_EQ(ReadWholeFile(client.m_files / "b"), "0123456789");
  EXPECT_EQ(ReadWholeFile(client.m_files / "c"), "0123456789");
}

TEST(Download, HandOverWaitsForAWriteUpToItsLimit) {
  CScopedSystem system(CFaultPlan().ClockFaster(1000));
  CTestClient client;
  client.m_bWriting = true;
  EXPECT_FALSE(client.StopReceiveData());
  EXPECT_EQ(system.SleptMilliseconds(), 5070);
  client.CloseFile();
  EXPECT_EQ(system.SleptMilliseconds(), 2 * 5070);
  client.m_bWriting = false;
  EXPECT_TRUE(client.StopReceiveData());
  EXPECT_EQ(system.SleptMilliseconds(), 2 * 5070 + 20);
}

TEST(Download, ClientCanBeDestroyedWhileDataArrives) {
  const std::string piece = PatternBytes(65508);
  for (int i = 0; i < 5; ++i) {
    CFakeServer server;
    std::promise<void> gone;
    server.Answer(2504, Int64(1 << 20));
    server.On(2505, [&, over = gone.get_future().share()](const std::string&) {
      server.Send(2505, Int32(1));
      while (over.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
        server.Send(2506, Int64(0) + piece);
      }
    });
    {
      CTestClient client(server);
      ASSERT_EQ(client.StartDownload({"a"}), 1);
      while (client.m_llTransBytes < (1 << 20)) std::this_thread::yield();
    }
    gone.set_value();
  }
}

}  // namespace
