// Downloads from a scripted server.

#include <future>

#include "platform/ByteOrder.h"
#include "protocol/MessageCodes.h"
#include "support/TestClient.h"

namespace {

const std::string kPrefix = "CKQFileTransServiceClient ReceiveSingleFile ";

// What the server sends for a file, one after the other; 0 in front of the
// code list keeps it silent.
void SendRest(CFakeServer& server, const std::string& content, const std::string& request) {
  constexpr std::size_t kPiece = 65508;
  for (auto at = static_cast<std::size_t>(ReadInt64(request.data())); at < content.size();
       at += kPiece) {
    server.Send(2506, Int64(static_cast<std::int64_t>(at)) + content.substr(at, kPiece));
  }
}

void Serve(CFakeServer& server, const std::string& content) {
  server.Answer(2504, Int64(static_cast<std::int64_t>(content.size())));
  server.On(2505, [&server, content](const std::string& request) {
    server.Send(2505, Int32(1));
    SendRest(server, content, request);
    server.Send(2507, Int32(1));
  });
}

TEST(Download, FilesGoOnBehindWhatIsThere) {
  CFakeServer server;
  const std::string content = PatternBytes(200000);
  Serve(server, content);
  CTestClient client(server);
  client.File("begun", content.substr(0, 150000));
  client.File("whole", content);
  server.Answer(2504, Int64(600000));
  EXPECT_EQ(client.Download({"sub/new", "begun", "whole"}), (std::vector<int>{1, 1, 1}));
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
  CTestClient client(server);
  server.Answer(2504, Int64(100000));
  server.On(2505, [&](const std::string& request) {
    SendRest(server, content, request);
    server.Send(2507, Int32(-28));
    server.Send(2505, Int32(1));
  });
  EXPECT_EQ(client.Download({"a"}), std::vector<int>{1}) << "an end is a success, whatever code";
  EXPECT_EQ(client.m_nServerErrorCode, -28);
  EXPECT_TRUE(ReadWholeFile(client.m_files / "a") == content);
}

TEST(Download, FirstFailureEndsTheDownloadWithItsCode) {
  CScopedSystem system(CFaultPlan().ClockFaster(100).DiskFullAfter(8000));
  struct SCase {
    int m_nStatus;
    std::string m_strFile;
    std::string m_strLog;
    std::function<void(CFakeServer&, CTestClient&)> m_plan;
  };
  const auto answerWith = [](std::vector<CFakeServer::Packet> packets) {
    return [packets](CFakeServer& s, CTestClient&) {
      s.On(2505, [&s, packets](const std::string&) {
        for (const auto& [code, body] : packets) s.Send(code, body);
      });
    };
  };
  const std::string full = Int64(0) + std::string(9000, 'x');
  const std::vector<SCase> cases = {
      {-23, "dir", "", [](CFakeServer&, CTestClient& c) { c.File("dir/file", ""); }},
      {-24, "a", kPrefix + " ERROR_CODE_CLIENT_SENDFILECMD \n",
       [](CFakeServer& s, CTestClient& c) {
         s.On(2504, [&](const std::string&) {
           c.m_pLinkInfo = nullptr;
           s.Send(2504, Int64(1));
         });
       }},
      {-25, "a", kPrefix + " ERROR_CODE_WAIT_SERVERRESPOND_DOWN \n", answerWith({})},
      {-7, "a", kPrefix + "m_nErrorCode1 = -7  \n", answerWith({{2505, Int32(-7)}})},
      {-26, "a", kPrefix + "m_nErrorCode2 = 1 \n ", answerWith({{2505, Int32(1)}})},
      {-10, "a", kPrefix + "m_nErrorCode2 = 1 \n ",
       answerWith({{2505, Int32(1)}, {2508, Int32(-10)}})},
      {-27, "a", "", answerWith({{2505, Int32(1)}, {2506, Int64(-1)}})},
      {-27, "a", kPrefix + "m_nErrorCode2 = -27 \n ",
       answerWith({{2506, Int64(-1)}, {2505, Int32(1)}})},
      {-27, "a", "", answerWith({{2505, Int32(1)}, {2506, full}})},
  };
  for (const SCase& each : cases) {
    CFakeServer server;
    CTestClient client(server);
    server.Answer(2504, Int64(1));
    each.m_plan(server, client);
    EXPECT_EQ(client.Download({each.m_strFile, "never"}), (std::vector<int>{each.m_nStatus, 1}));
    EXPECT_EQ(client.m_nTransState, 0);
    const std::string log =
        each.m_nStatus != -23 ? each.m_strLog
                              : "ERROR_CODE_CLIENT_CREATEFILE " + client.m_strPrjDir + " - dir \n";
    EXPECT_NE(client.Log().find(log), std::string::npos) << client.Log();
    client.Stop();  // plans refer to the client
  }
}

TEST(Download, FreeSpaceMustHoldTheWholeRequest) {
  const auto downloadWith = [](const CFaultPlan& plan, std::int64_t total) {
    CScopedSystem system(plan);
    CFakeServer server;
    CTestClient client(server);
    Serve(server, "");
    server.Answer(2504, Int64(total));
    const int result = client.DownFileFromDataService(client.Request({}));
    if (result == 1) return client.WaitFinished() ? 1 : 0;
    EXPECT_EQ(client.m_nTransState, 2) << "the state stays";
    EXPECT_EQ(client.DownFileFromDataService(client.Request({})), -16);
    EXPECT_EQ(client.m_nTransState, 0) << "until it was asked for";
    return result;
  };
  EXPECT_EQ(downloadWith(CFaultPlan().FreeSpace(5000000000), 5000000000), 1);
  EXPECT_EQ(downloadWith(CFaultPlan().FreeSpace(4999999999), 5000000000), -37);
  EXPECT_EQ(downloadWith(CFaultPlan().FreeSpaceUnknown(), 0), -37);
  EXPECT_EQ(downloadWith(CFaultPlan().FreeSpace(1 << 30), -1), -37);

  CFakeServer server;
  CTestClient unset;
  server.Answer(2504, Int64(0));
  ASSERT_TRUE(unset.Connect("127.0.0.1", server.Port()));
  EXPECT_EQ(unset.Download({"a"}), std::vector<int>{-37}) << "no directory set";
}

TEST(Download, SilentServerLeavesTheClientIdle) {
  CScopedSystem system(CFaultPlan().ClockFaster(100));
  CFakeServer server;
  CTestClient client(server);
  EXPECT_EQ(client.Download({"a"}), std::vector<int>{-22});
  EXPECT_EQ(client.m_nTransState, 0);
  EXPECT_EQ(client.StopTrans(), 1) << "nothing to stop";

  server.Answer(2504, Int64(1));
  server.Silent(2503);
  ASSERT_EQ(client.DownFileFromDataService(client.Request({"a"}, true)), 1);
  ASSERT_TRUE(server.WaitFor(2505));
  EXPECT_EQ(client.StopTrans(), 0) << "nobody confirmed";
  EXPECT_TRUE(client.WaitFinished());
}

// The confirmation may come before StopTrans has begun to wait for it.
TEST(Download, ConfirmationOfAStopIsNeverLost) {
  CScopedSystem system(CFaultPlan().ClockFaster(20));
  std::vector<std::thread> hosts;
  for (int i = 0; i < 10; ++i) {
    hosts.emplace_back([] {
      CFakeServer server;
      CTestClient client(server);
      server.Answer(2504, Int64(100));
      server.On(2505, [&](const std::string&) {
        server.Send(2505, Int32(1));
        server.Send(2506, Int64(0) + "begun");
      });
      for (int k = 0; k < 100; ++k) {
        ASSERT_EQ(client.DownFileFromDataService(client.Request({"a"}, true)), 1);
        while (client.m_llTransBytes == 0) std::this_thread::yield();
        ASSERT_EQ(client.StopTrans(), 1) << "stop " << k;
        ASSERT_TRUE(client.WaitFinished());
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
  ASSERT_EQ(client.DownFileFromDataService(client.Request({"first", "never"}, true)), 1);
  ASSERT_TRUE(server.WaitFor(2505));
  EXPECT_EQ(client.DownFileFromDataService(client.Request({"b"}, true)), -16);
  Serve(server, "0123456789");
  EXPECT_EQ(client.Download({"b", "c"}), (std::vector<int>{1, 1}));
  EXPECT_EQ(ReadWholeFile(client.m_files / "b"), "0123456789");
  EXPECT_EQ(ReadWholeFile(client.m_files / "c"), "0123456789");
  EXPECT_FALSE(server.Bodies(2505).back() == Int64(0) + "never");
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
  client.m_bStopReceive = false;
  EXPECT_TRUE(client.StopReceiveData());
  EXPECT_TRUE(client.m_bStopReceive);
  EXPECT_EQ(system.SleptMilliseconds(), 2 * 5070 + 20);
}

TEST(Download, ClientCanBeDestroyedWhileDataArrives) {
  CFakeServer server;
  server.Answer(2504, Int64(1 << 20));
  const std::string piece = PatternBytes(65508);
  for (int i = 0; i < 5; ++i) {
    std::promise<void> gone;
    server.On(2505, [&, over = gone.get_future().share()](const std::string&) {
      server.Send(2505, Int32(1));
      std::int64_t at = 0;
      while (over.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
        server.Send(2506, Int64(at++) + piece);
      }
    });
    {
      CTestClient client(server);
      ASSERT_EQ(client.DownFileFromDataService(client.Request({"a"}, true)), 1);
      while (client.m_llTransBytes < (1 << 20)) std::this_thread::yield();
    }
    gone.set_value();
  }
}

}  // namespace
