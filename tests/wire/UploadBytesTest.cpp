// Golden bytes: an upload as it travels, written out by hand.

#include "support/TestClient.h"
#include "support/TestServer.h"
#include "support/TestSockets.h"

namespace {

// Turns "4b 51 ..." into bytes.
std::string Bytes(const std::string& hex) {
  std::string bytes;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 3) {
    bytes += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
  }
  return bytes;
}

using WireBytes = CServerTest;

TEST_F(WireBytes, UploadOfAnOrdinaryFile) {
  const std::string content = PatternBytes(131017);
  const std::string target = m_dir / "up/run1.tmx";
  ASSERT_TRUE(m_server.Init(0));
  CScopedSockets sockets;
  sockets.Follow(SLinkPlan());
  {
    CTestClient client(m_server.Port());
    client.File("run1.tmx", content);
    EXPECT_EQ(client.Upload({"run1.tmx"}, m_dir / "up/"), std::vector<int>{1});
    EXPECT_EQ(client.GetTrans(), 1.0F);
  }
  EXPECT_EQ(ReadWholeFile(target), content);

  const auto pathLength = static_cast<char>(target.size() + 1);
  ASSERT_LT(target.size() + 1, 128U);
  // code 2500, flag 1 (create), then the path
  std::string sent = Bytes("4b 51 46 54 c4 09 00 00 01 00 00 00") + pathLength +
                     Bytes("00 00 00 00 00 00 00 01") + target;
  // code 2501 three times: 65508, 65508 and 1 data bytes at 0, 65508 and 131016
  const std::string full = Bytes("4b 51 46 54 c5 09 00 00 01 00 00 00 ec ff 00 00 00 00 00 00");
  sent += full + Bytes("00 00 00 00 00 00 00 00") + content.substr(0, 65508);
  sent += full + Bytes("e4 ff 00 00 00 00 00 00") + content.substr(65508, 65508);
  sent += Bytes(
      "4b 51 46 54 c5 09 00 00 01 00 00 00 09 00 00 00 00 00 00 00 "
      "c8 ff 01 00 00 00 00 00");
  sent += content.substr(131016);
  // code 2502, nothing
  sent += Bytes("4b 51 46 54 c6 09 00 00 01 00 00 00 00 00 00 00 00 00 00 00");
  EXPECT_TRUE(sockets.Carried(EDirection::kSent) == sent);

  // 2500: result 1, the file had 0 bytes; 2502: nothing
  EXPECT_TRUE(sockets.Carried(EDirection::kReceived) ==
              Bytes("4b 51 46 54 c4 09 00 00 01 00 00 00 0c 00 00 00 00 00 00 00 "
                    "01 00 00 00 00 00 00 00 00 00 00 00 "
                    "4b 51 46 54 c6 09 00 00 01 00 00 00 00 00 00 00 00 00 00 00"));
}

}  // namespace
