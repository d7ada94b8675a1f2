// Golden bytes: an upload as it travels, written out by hand.

#include "client/KQFileTransServiceClient.h"
#include "support/LoopbackServer.h"
#include "support/WireTap.h"

namespace {

// Turns "4b 51 ..." into bytes.
std::string Bytes(const std::string& hex) {
  std::string bytes;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 3) {
    bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
  }
  return bytes;
}

TEST(WireBytes, UploadOfAnOrdinaryFile) {
  CScopedSystem system(CFaultPlan().ClockFaster(100));
  CTempDirectory directory;
  const std::string content = PatternBytes(131017);
  const std::string source = directory / "run1.dat";
  const std::string target = directory / "up/run1.dat";
  WriteWholeFile(source, content);
  CLoopbackServer server(directory);
  CWireTap tap(server.Port());
  {
    CKQFileTransServiceClient client;
    ASSERT_TRUE(client.Init(directory.Path()));
    ASSERT_TRUE(client.Connect("127.0.0.1", tap.Port()));
    Channel_Key_Value record;
    record.m_strPath = source;
    record.m_strName = target;
    std::string request;
    Channel_Key_Value::ConverValueToXML({record}, request);
    ASSERT_EQ(client.UpdateFileToDataService(request), 1);
    while (!client.IsTransFinished()) std::this_thread::yield();
    EXPECT_EQ(client.GetTrans(), 1.0F);
  }
  tap.WaitClosed();
  EXPECT_EQ(ReadWholeFile(target), content);

  const auto pathLength = static_cast<char>(target.size() + 1);
  ASSERT_LT(target.size() + 1, 128U);
  // code 2500, flag 1 (create), then the path
  std::string sent = Bytes("4b 51 46 54 c4 09 00 00 01 00 00 00") + pathLength +
                     Bytes("00 00 00 00 00 00 00 01") + target;
  // code 2501 three times: 65508, 65508 and 1 data bytes at 0, 65508 and 131016
  sent += Bytes(
      "4b 51 46 54 c5 09 00 00 01 00 00 00 ec ff 00 00 00 00 00 00 "
      "00 00 00 00 00 00 00 00");
  sent += content.substr(0, 65508);
  sent += Bytes(
      "4b 51 46 54 c5 09 00 00 01 00 00 00 ec ff 00 00 00 00 00 00 "
      "e4 ff 00 00 00 00 00 00");
  sent += content.substr(65508, 65508);
  sent += Bytes(
      "4b 51 46 54 c5 09 00 00 01 00 00 00 09 00 00 00 00 00 00 00 "
      "c8 ff 01 00 00 00 00 00");
  sent += content.substr(131016);
  // code 2502, nothing
  sent += Bytes("4b 51 46 54 c6 09 00 00 01 00 00 00 00 00 00 00 00 00 00 00");
  EXPECT_TRUE(tap.FromClient() == sent);

  // 2500: result 1, the file had 0 bytes; 2502: nothing
  EXPECT_TRUE(tap.FromServer() ==
              Bytes("4b 51 46 54 c4 09 00 00 01 00 00 00 0c 00 00 00 00 00 00 00 "
                    "01 00 00 00 00 00 00 00 00 00 00 00 "
                    "4b 51 46 54 c6 09 00 00 01 00 00 00 00 00 00 00 00 00 00 00"));
}

}  // namespace
