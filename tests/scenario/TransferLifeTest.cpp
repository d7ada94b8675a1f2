// Real client, real server: transfers whose ends are cut, stopped, taken over
// and destroyed while they run.

#include <fstream>
#include <random>

#include "client/KQFileTransServiceClient.h"
#include "net/NetWorkManageEx.h"
#include "platform/ByteOrder.h"
#include "platform/KQEvent.h"
#include "protocol/MessageCodes.h"
#include "protocol/ResultCodes.h"
#include "session/TransClient.h"
#include "support/LoopbackServer.h"
#include "support/RecordingSink.h"

namespace {

class CClient : public CKQFileTransServiceClient {
 public:
  explicit CClient(const CTempDirectory& directory, const std::string& from) {
    m_pNetWork->SetLocalAddress(from);
    Init(directory.Path());
  }
  // Callbacks of the network must not meet a half destroyed object.
  ~CClient() override { Stop(); }
  // What a host does before it disconnects: a write that fails tells the
  // session that none is under way.
  void CloseCourteously(const std::string& name) {
    EXPECT_EQ(PrepareTransFile(name, false), RESULT_OK);
    SendData(-1, "x", 1);
    m_evFileEnd->ResetKQEvent();
    SendMessage(NET_CTS_TRANSFILEDATA_END, nullptr, 0);
    EXPECT_NE(m_evFileEnd->Wait(20000), kWaitTimeout);
  }
  using CKQFileTransServiceClient::SendAndWaitPre;
};

int Upload(CKQFileTransServiceClient& client, const std::string& source, const std::string& name) {
  Channel_Key_Value record;
  record.m_strPath = source;
  record.m_strName = name;
  std::string request;
  Channel_Key_Value::ConverValueToXML({record}, request);
  return client.UpdateFileToDataService(request);
}

int Status(CKQFileTransServiceClient& client) {
  std::string text;
  client.GetAllTransFileStatus(text);
  std::vector<Channel_Key_Value> records;
  Channel_Key_Value::ConvertXMLToValue(text, records);
  return records.at(0).m_nStatus;
}

void MakeSparse(const std::string& path, std::int64_t bytes) {
  WriteWholeFile(path, "");
  std::ofstream file(path, std::ios::binary);
  file.seekp(bytes - 1);
  file.put('x');
}

TEST(TransferLife, EitherEndMayStopOrDieInTheMiddleOfAnUpload) {
  CScopedSystem system(CFaultPlan().ClockFaster(100));
  CTempDirectory directory;
  const std::string source = directory / "source.dat";
  MakeSparse(source, std::int64_t{1} << 28);
  for (int round = 0; round < 8; ++round) {
    auto server = std::make_unique<CLoopbackServer>(directory);
    auto client = std::make_unique<CKQFileTransServiceClient>();
    ASSERT_TRUE(client->Init(directory.Path()));
    ASSERT_TRUE(client->Connect("127.0.0.1", server->Port()));
    ASSERT_EQ(Upload(*client, source, directory / "target.dat"), RESULT_OK);
    ASSERT_TRUE(WaitUntil([&] { return client->GetTrans() > 0.01F * static_cast<float>(round); }));
    switch (round % 4) {
      case 0:
        client->Stop();
        EXPECT_TRUE(WaitUntil([&] { return client->IsTransFinished(); }));
        EXPECT_EQ(Status(*client), ERROR_CODE_CLIENT_SENDDATA);
        break;
      case 1:
        client.reset();
        EXPECT_TRUE(WaitUntil([&] { return server->Links() == 0; }));
        break;
      case 2:
        server->Stop();
        EXPECT_TRUE(WaitUntil([&] { return client->IsTransFinished(); }));
        break;
      default:
        server.reset();
        EXPECT_TRUE(WaitUntil([&] { return client->IsTransFinished(); }));
        EXPECT_FALSE(client->IsConnect());
    }
  }
}

TEST(TransferLife, ANewerLinkOfAnAddressTakesOverAndIsServedWhole) {
  CScopedSystem system(CFaultPlan().ClockFaster(50));
  CTempDirectory directory;
  MakeSparse(directory / "large.dat", std::int64_t{1} << 28);
  const std::string content = PatternBytes(3 << 20);
  WriteWholeFile(directory / "small.dat", content);
  CLoopbackServer server(directory);
  CClient first(directory, "127.4.0.2");
  CClient second(directory, "127.4.0.2");
  ASSERT_TRUE(first.Connect("127.0.0.1", server.Port()));
  ASSERT_EQ(Upload(first, directory / "large.dat", directory / "a.dat"), RESULT_OK);
  ASSERT_TRUE(WaitUntil([&] { return first.GetTrans() > 0; }));
  ASSERT_TRUE(second.Connect("127.0.0.1", server.Port()));
  std::string answer;  // comes once the session has been quiet
  while (second.GetServerPrjFileList("no-such-project", answer) != RESULT_OK) {
  }
  ASSERT_EQ(Upload(second, directory / "small.dat", directory / "b.dat"), RESULT_OK);
  ASSERT_TRUE(WaitUntil([&] { return second.IsTransFinished(); }));
  EXPECT_EQ(Status(second), RESULT_OK);
  EXPECT_TRUE(ReadWholeFile(directory / "b.dat") == content);
  EXPECT_EQ(server.Sessions(), 1U);
  ASSERT_TRUE(WaitUntil([&] { return first.IsTransFinished(); }));
  EXPECT_NE(Status(first), RESULT_OK);  // its end was never acknowledged
}

TEST(TransferLife, ThreeHundredReconnectsKeepOneSession) {
  CScopedSystem system(CFaultPlan().ClockFaster(20));
  CTempDirectory directory;
  CLoopbackServer server(directory);
  CClient client(directory, "127.4.0.3");
  std::string dir;
  for (int i = 0; i < 300; ++i) {
    ASSERT_TRUE(client.Connect("127.0.0.1", server.Port()));
    if (i % 10 == 0) {
      ASSERT_EQ(client.GetPrjDir(dir), RESULT_OK) << i;
    }
    client.Stop();
    ASSERT_TRUE(client.Init(directory.Path()));
  }
  EXPECT_EQ(dir, directory.Path());
  EXPECT_EQ(server.Sessions(), 1U);
  EXPECT_TRUE(WaitUntil([&] { return server.Links() == 0; }));
}

TEST(TransferLife, ADisconnectAfterStoredDataWaitsUnlessTheHostWasCourteous) {
  CScopedSystem system(CFaultPlan().ClockFaster(100));
  CTempDirectory directory;
  WriteWholeFile(directory / "small.dat", "content");
  CLoopbackServer server(directory);
  const auto disconnectCost = [&](const std::string& from, bool courteous) {
    CClient client(directory, from);
    EXPECT_TRUE(client.Connect("127.0.0.1", server.Port()));
    EXPECT_EQ(Upload(client, directory / "small.dat", directory / from), RESULT_OK);
    EXPECT_TRUE(WaitUntil([&] { return client.IsTransFinished(); }));
    if (courteous) client.CloseCourteously(directory / from);
    const std::int64_t before = system.SleptMilliseconds();
    client.Stop();
    // The next client's request needs the registry, so it comes after the wait.
    CClient next(directory, "127.4.0.6");
    EXPECT_TRUE(next.Connect("127.0.0.1", server.Port()));
    std::string dir;
    EXPECT_TRUE(WaitUntil([&] { return server.Links() == 1; }));
    while (next.GetPrjDir(dir) != RESULT_OK) {
    }
    return system.SleptMilliseconds() - before;
  };
  // 20 ms more for the set-up of the next client's session each time.
  EXPECT_GE(disconnectCost("127.4.0.4", false), 5070);
  const std::int64_t courteous = disconnectCost("127.4.0.5", true);
  EXPECT_GE(courteous, 20);
  EXPECT_LE(courteous, 200);
  EXPECT_EQ(ReadWholeFile(directory / "127.4.0.5"), "content");
}

TEST(TransferLife, GarbageHarmsOnlyTheLinkItComesFrom) {
  CScopedSystem system(CFaultPlan().ClockFaster(100));
  CTempDirectory directory;
  CLoopbackServer server(directory);
  CClient client(directory, "127.4.0.7");
  ASSERT_TRUE(client.Connect("127.0.0.1", server.Port()));
  std::mt19937 random(20);
  std::string dir;
  for (int i = 0; i < 60; ++i) {
    CRawClient raw(server.Port(), "127.4.1." + std::to_string(i + 1));
    ASSERT_TRUE(raw.IsOpen());
    std::string bytes = MakePacket(2500 + i % 15, "");
    const bool malformed = i % 3 == 0;
    if (malformed) {
      bytes[static_cast<std::size_t>(i / 3 % 4)] ^= 1;  // marker
    } else if (i % 3 == 1) {
      WriteUInt32(bytes.data() + 12, static_cast<std::uint32_t>(random()) >> 1 & 0x7fffff00U);
      bytes += PatternBytes(random() % 100000);  // a part of what it announces
    } else {
      for (std::size_t size = 0; size < 24; ++size) {
        const int code = 2500 + i % 15;
        if (code != NET_CTS_DELETEPRJ) bytes += MakePacket(code, std::string(size, '\xff'));
      }
    }
    raw.Send(bytes);
    if (malformed) {
      EXPECT_TRUE(raw.WaitClosed());
    }
    if (i % 10 == 0) {
      ASSERT_EQ(client.GetPrjDir(dir), RESULT_OK);
    }
  }
  EXPECT_TRUE(client.IsConnect());
  EXPECT_EQ(client.GetPrjDir(dir), RESULT_OK);
}

// The one test that pays the wait in real time.
TEST(TransferLife, StoppingASessionThatHasStoredDataTakesFiveSeconds) {
  CTempDirectory directory;
  CTransClient session(nullptr, 0, 0);
  const std::string announce = std::string(1, '\1') + (directory / "target");
  session.DealNetMsg(0, 0, NET_CTS_PREPARETRAN_FILE, static_cast<int>(announce.size()),
                     announce.data(), 0);
  session.DealNetMsg(0, 0, NET_CTS_TRANSFILEDATA, 9, "\0\0\0\0\0\0\0\0x", 0);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(session.StopService());
  const auto taken = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::steady_clock::now() - start);
  EXPECT_GE(taken.count(), 5070);
  EXPECT_LE(taken.count(), 5600);
  EXPECT_EQ(ReadWholeFile(directory / "target"), "x");
  session.DealNetMsg(0, 0, NET_CTS_TRANSFILEDATA, 9, "\xff\xff\xff\xff\xff\xff\xff\xffx", 0);
  session.m_bWriting = false;  // spares the destructor the same wait
}

}  // namespace
