// The server on the wire, and at its end.

#include "protocol/MessageCodes.h"
#include "protocol/ResultCodes.h"
#include "support/FakeTransNet.h"
#include "support/RecordingSink.h"
#include "support/TestServer.h"

namespace {

const std::string kAskDir = MakePacket(NET_CTS_GETPRJDIR, "");

std::string AskUpload(const std::string& path) {
  return MakePacket(NET_CTS_PREPARETRAN_FILE, "\1" + path);
}

TEST(ServerCore, ListensWhereItWasToldAndAgainAfterStop) {
  STestServer test, other;
  ASSERT_TRUE(test.m_server.Init(0));
  const int port = test.m_server.Port();
  EXPECT_TRUE(test.m_server.Init(0));  // listens already
  EXPECT_EQ(test.m_server.Port(), port);
  EXPECT_FALSE(other.m_server.Init(port));
  EXPECT_TRUE(other.m_server.Init(0));
  const std::string answer = MakePacket(NET_CTS_GETPRJDIR, test.m_dir.Path());
  for (int i = 0; i < 2; ++i) {
    CRawClient client(port);
    ASSERT_TRUE(client.Send(MakePacket(2515, "unknown") + kAskDir));
    EXPECT_EQ(client.Receive(answer.size()), answer);
    test.m_server.Stop();
    EXPECT_TRUE(client.WaitClosed());
    ASSERT_TRUE(test.m_server.Init(port));
  }
}

TEST(ServerCore, NewLinkOfAnAddressReplacesTheOldOne) {
  STestServer test;
  ASSERT_TRUE(test.m_server.Init(0));
  const std::string upload = AskUpload(test.m_dir / "up");
  CRawClient old(test.m_server.Port());
  ASSERT_TRUE(old.Send(upload));
  old.Receive(32);
  ASSERT_TRUE(old.Send(upload.substr(0, 25)));  // half a packet
  for (int i = 0; i < 5; ++i) {
    CRawClient next(test.m_server.Port());
    ASSERT_TRUE(next.Send(upload + MakePacket(NET_CTS_TRANSFILEDATA, Int64(0) + "data") +
                          MakePacket(NET_CTS_TRANSFILEDATA_END, "")));
    EXPECT_EQ(next.Receive(32 + 20).substr(20, 4), Int32(RESULT_OK));
    old.Send(kAskDir);  // read and discarded
    EXPECT_EQ(ReadWholeFile(test.m_dir / "up"), "data");
  }
}

TEST(ServerCore, EndsInTheMiddleOfTransfers) {
  for (int i = 0; i < 3; ++i) {
    STestServer test;
    WriteWholeFile(test.m_dir / "file", PatternBytes(8 << 20));
    ASSERT_TRUE(test.m_server.Init(0));
    CRawClient reader(test.m_server.Port(), "127.8.0.1"), writer(test.m_server.Port(), "127.8.0.2");
    reader.Send(MakePacket(NET_CTS_PREPARETRANS_FILE, Int64(0) + (test.m_dir / "file")));
    EXPECT_EQ(reader.Receive(100000).size(), 100000U);  // and reads no more
    writer.Send(AskUpload(test.m_dir / "up"));
    EXPECT_EQ(writer.Receive(32).size(), 32U);
    writer.Send(MakePacket(NET_CTS_TRANSFILEDATA, Int64(0) + std::string(60000, 'x')));
  }
}

TEST(ServerCore, EventsAndFailedSendsAreTold) {
  STestServer test;
  test.m_server.SetLog(test.m_dir.Path(), true);
  testing::internal::CaptureStdout();
  test.m_server.DealNetMsg(kClientIp, 5000, NET_COMMAND_CONNECT, 0, nullptr, 0);
  test.m_server.DealNetMsg(kClientIp, 5000, NET_COMMAND_DISCONNECT, 0, nullptr, 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "new client:127.0.0.1:5000\nclient disconnect:127.0.0.1:5000\n");
  EXPECT_FALSE(test.m_server.SendText(1, 1, "", 0));
  test.m_server.DropNetwork();
  EXPECT_FALSE(test.m_server.SendText(1, 1, "", 0));
  EXPECT_FALSE(test.m_server.SendText(nullptr, nullptr));
  EXPECT_EQ(test.m_server.GetLinkInfo(1, 1), nullptr);

  std::string log = ReadWholeFile(test.m_server.m_strLogFile);
  for (const char* text :
       {": new client: 127.0.0.1 :5000 \n", ": client disconnect: 127.0.0.1 :5000 \n",
        // without a line end of its own
        ":  CKQFileTransServiceServer::SendText  m_pPrimaryNetWork = null",
        ":  CKQFileTransServiceServer::SendText  m_pPrimaryNetWork = null"}) {
    EXPECT_EQ(log.find(text), 19U) << text;
    log.erase(0, 19 + std::string(text).size());
  }
  EXPECT_EQ(log, "");
}

}  // namespace
