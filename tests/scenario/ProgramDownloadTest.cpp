// Downloads from a kqft-server of its own: a reader that is slow, and one
// that stops in the middle.

#include <gtest/gtest.h>

#include "client/KQFileTransServiceClient.h"
#include "net/NetWorkManageEx.h"
#include "platform/ByteOrder.h"
#include "protocol/MessageCodes.h"
#include "protocol/ResultCodes.h"
#include "support/Programs.h"
#include "support/RecordingSink.h"

namespace {

constexpr std::int64_t kGiB = std::int64_t{1} << 30;

class CClient : public CKQFileTransServiceClient {
 public:
  CClient(const std::string& from, const std::string& logs) {
    m_pNetWork->SetLocalAddress(from);
    Init(logs);
  }
  ~CClient() override { Stop(); }
};

}  // namespace

TEST(ProgramDownload, SlowReaderCostsTheServerNoMemory) {
  CServerProgram server;
  MakeSparseFile(server.ProjectPath("P/big.tm"), 4 * kGiB);
  CRawClient client(server.Port(), "127.0.0.2");
  ASSERT_TRUE(client.Send(MakePacket(NET_CTS_GETPRJDIR, "")));
  ASSERT_EQ(client.Receive(20).size(), 20U);
  const std::int64_t idle = server.Process().MemoryBytes();
  ASSERT_TRUE(client.Send(MakePacket(NET_CTS_PREPARETRANS_FILE,
                                     std::string(8, '\0') + server.ProjectPath("P/big.tm"))));
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
  CTempDirectory local;
  CClient client("127.0.0.3", local.Path());
  ASSERT_TRUE(client.Connect("127.0.0.1", server.Port()));
  client.SetPrjDir(local.Path());
  Channel_Key_Value file;
  file.m_strPath = "big.tm";
  file.m_strName = server.ProjectPath("P/big.tm");
  std::string request;
  Channel_Key_Value::ConverValueToXML({file}, request);
  std::string directory;
  for (int round = 0; round < 3; ++round) {
    ASSERT_EQ(client.DownFileFromDataService(request), RESULT_OK);
    const float before = client.GetTrans();
    ASSERT_TRUE(WaitUntil([&] { return client.GetTrans() > before + 0.01F; }));
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(client.StopTrans(), 1);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
    EXPECT_TRUE(WaitUntil([&] { return client.IsTransFinished(); }));
    EXPECT_TRUE(client.IsConnect());
    EXPECT_EQ(client.GetPrjDir(directory), RESULT_OK);
  }
}
