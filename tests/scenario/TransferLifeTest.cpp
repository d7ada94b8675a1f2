// Real client, real server: transfers whose ends are cut, stopped, taken over
// and destroyed while they run.

#include <future>

#include "net/NetWorkPackHead.h"
#include "platform/KQFile.h"
#include "protocol/MessageCodes.h"
#include "protocol/ResultCodes.h"
#include "support/ForgetfulDisk.h"
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

  // Every link has ended, and none waits for a write that may still run.
  bool IsIdle() {
    const CScopedLock lock(m_server.m_pClientLock);
    bool idle = true;
    for (const auto& [key, session] : m_server.m_mapClient) {
      session->m_bWriting = false;
      idle = idle && session->m_bStopService && !session->m_pTransFile->IsOpen();
    }
    return idle;
  }
};

// A client of its own making sends small files behind one another; its link is
// cut after any byte, and then the power.
TEST_F(TransferLife, SmallFilesBehindOneAnotherAreWholeOnceTheyAreConfirmed) {
  constexpr int kFiles = 20;
  constexpr std::size_t kEndBytes = 20;    // of an answer to the end of a file
  constexpr std::size_t kStartBytes = 32;  // to its beginning
  m_system.Follow(CFaultPlan().ClockFaster(200));
  CTempDirectory files;
  CForgetfulDisk disk(files.Path());
  m_server.SetPrjDir(files.Path());
  m_server.SetDurable(true);
  const auto name = [&](int i) {
    return std::string(i < 9 ? "P/a/" : "P/b/c/") + std::to_string(i);
  };
  const auto content = [](int i) {
    return PatternBytes(static_cast<std::size_t>(i % 4) * 7, static_cast<unsigned>(i) + 1);
  };
  std::string stream;
  std::vector<std::size_t> starts, ends;
  for (int i = 0; i < kFiles; ++i) {
    stream += MakePacket(NET_CTS_PREPARETRAN_FILE, "\1" + (files / name(i)));
    starts.push_back(stream.size());
    if (i % 4 > 0) stream += MakePacket(NET_CTS_TRANSFILEDATA, Int64(0) + content(i));
    stream += MakePacket(NET_CTS_TRANSFILEDATA_END);
    ends.push_back(stream.size());
  }
  int address = 0;
  for (std::size_t at = 100; at <= stream.size(); at += static_cast<std::size_t>(SweepStep(131))) {
    for (const std::size_t bytes : {at, stream.size()}) {  // the second time from the beginning
      const auto reached = [bytes](std::size_t end) { return end <= bytes; };
      const auto confirmed = std::count_if(ends.begin(), ends.end(), reached);
      const auto begun = std::count_if(starts.begin(), starts.end(), reached);
      const std::size_t answers = static_cast<std::size_t>(begun) * kStartBytes +
                                  static_cast<std::size_t>(confirmed) * kEndBytes;
      ++address;
      CRawClient client(Port(), "127.6." + std::to_string(address / 250) + "." +
                                    std::to_string(address % 250 + 1));
      ASSERT_TRUE(client.Send(stream.substr(0, bytes)));
      EXPECT_EQ(client.Receive(answers).size(), answers);
      EXPECT_FALSE(IsIdle());
      client.Close();
      EXPECT_TRUE(WaitUntil([this] { return IsIdle(); }));
      disk.LosePower(false);
      for (int i = 0; i < confirmed; ++i) {
        EXPECT_TRUE(ReadWholeFile(files / name(i)) == content(i)) << i << " of " << bytes;
      }
    }
    disk.Clear();
  }
}

TEST_F(TransferLife, ClientsThenTheServerStopAndDieUnderLoad) {
  constexpr std::size_t kClients = 6;
  m_system.Follow(CFaultPlan().ClockFaster(1));  // a busy machine is no stalled link
  MakeSparseFile(m_dir / "down", kLargeBytes);
  auto server = std::make_unique<CTestServer>(m_dir);
  ASSERT_TRUE(server->Init(0));
  std::vector<std::unique_ptr<CTestClient>> clients;
  for (std::size_t i = 0; i < kClients; ++i) {
    const std::string number = std::to_string(i + 1);
    clients.push_back(std::make_unique<CTestClient>(server->Port(), "127.4.1." + number));
    MakeSparseFile(clients[i]->m_files / number, kLargeBytes);
    ASSERT_EQ(i % 2 == 0 ? clients[i]->StartUpload({number}, m_dir.Path())
                         : clients[i]->StartDownload({"down"}, m_dir.Path()),
              RESULT_OK);
  }
  for (const auto& client : clients) ASSERT_TRUE(WaitUntil([&] { return client->GetTrans() > 0; }));
  m_system.Follow(CFaultPlan().ClockFaster(50));
  std::vector<std::future<void>> deaths;
  for (std::size_t i = 0; i < 4; ++i) {
    deaths.push_back(std::async(std::launch::async, [&clients, i] {
      if (i >= 2) return clients[i].reset();
      clients[i]->Stop();
      EXPECT_NE(clients[i]->Finish(), std::vector<int>{RESULT_OK});
    }));
  }
  for (const auto& death : deaths) death.wait();
  EXPECT_TRUE(WaitUntil([&] { return server->Links() == kClients - deaths.size(); }));
  server.reset();
  for (std::size_t i = deaths.size(); i < kClients; ++i) {
    clients[i]->Finish();
    EXPECT_FALSE(clients[i]->IsConnect());
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

// Lets a test act between a session's look at the link and what it sends.
struct CInterruptedServer : CTestServer {
  using CTestServer::CTestServer, CTestServer::SendText;
  ~CInterruptedServer() override { Stop(); }
  std::string GetFileDir() override {
    if (m_nGivenTo != 0) AddClientManage(0x7f040005, m_nGivenTo);
    return CTestServer::GetFileDir();
  }
  bool SendText(unsigned int ip, int port, const char* data, int len) override {
    if (CNetWorkPackHead::Code(data) == NET_STC_TRANSFILEDATA_END) m_beforeEnd();
    return CTestServer::SendText(ip, port, data, len);
  }

  CSharedWord<int> m_nGivenTo = 0;  // the port of a link that takes the session over
  std::function<void()> m_beforeEnd;
};

TEST_F(TransferLife, AnswersGoToTheLinkOnWhichTheRequestCame) {
  CInterruptedServer server(m_dir);
  ASSERT_TRUE(server.Init(0));
  const std::string question = MakePacket(NET_CTS_GETPRJDIR);
  const std::string answer = MakePacket(NET_CTS_GETPRJDIR, m_dir.Path());
  const CRawClient other(server.Port(), "127.4.0.5");
  ASSERT_TRUE(WaitUntil([&] { return server.Sessions() == 1; }));
  CRawClient client(server.Port(), "127.4.0.5");
  const auto isAnswered = [&] {
    return client.Send(question) && client.Receive(answer.size()) == answer;
  };
  ASSERT_TRUE(isAnswered());
  server.m_nGivenTo = other.LocalPort();
  EXPECT_TRUE(isAnswered());
  server.m_nGivenTo = 0;
  client.Reconnect();

  // A download's end is on its way when its client comes back.
  WriteWholeFile(m_dir / "file", "");
  std::promise<bool> back;
  server.m_beforeEnd = [&] {
    client.Reconnect();
    back.set_value(isAnswered());
  };
  client.Send(MakePacket(NET_CTS_PREPARETRANS_FILE, Int64(0) + (m_dir / "file")));
  EXPECT_TRUE(back.get_future().get());
  server.GetClientManage(0x7f040005, client.LocalPort())->WaitSenders();
  EXPECT_TRUE(isAnswered());
}

// What comes in while the disk is busy is stored by few calls.
TEST_F(TransferLife, ChunksThatQueueBehindASlowWriteAreStoredTogether) {
  constexpr int kChunks = 30;
  struct CSlowDisk : CForwardingSystem {
    CSlowDisk() : CForwardingSystem(System()), m_pBefore(ReplaceSystem(this)) {}
    ~CSlowDisk() override { ReplaceSystem(m_pBefore); }
    ESystemError Before(EOperation operation, const std::string& path) override {
      const bool counts = operation == EOperation::kWrite && path.find("run.tm") != path.npos;
      if (counts && m_nWrites++ == 0) m_released.get_future().wait();
      return ESystemError::kNone;
    }
    std::promise<void> m_released;
    std::atomic<int> m_nWrites = 0;
    ISystem* const m_pBefore;
  } disk;
  const std::string bytes = PatternBytes(std::size_t{1000} * kChunks);
  const CRawClient client(Port());
  Ask(client, NET_CTS_PREPARETRAN_FILE, "\1" + (m_dir / "run.tm"));
  std::string stream;
  for (std::size_t at = 0; at < bytes.size(); at += 1000) {
    stream += MakePacket(NET_CTS_TRANSFILEDATA,
                         Int64(static_cast<std::int64_t>(at)) + bytes.substr(at, 1000));
  }
  EXPECT_TRUE(client.Send(stream + MakePacket(NET_CTS_TRANSFILEDATA_END)));
  disk.m_released.set_value();
  EXPECT_EQ(client.Receive(20).size(), 20U);
  EXPECT_TRUE(ReadWholeFile(m_dir / "run.tm") == bytes);
  EXPECT_LT(disk.m_nWrites, kChunks / 3);
  m_server.Stop();
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

}  // namespace
