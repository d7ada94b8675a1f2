// Resume of measurement files against a scripted server.

#include <filesystem>

#include "protocol/MessageCodes.h"
#include "support/TestClient.h"

namespace {

// Uploads a local file of `bytes` bytes under `name` to a server whose answer
// to 2509 is `lost`, and returns what the server received behind it.
std::vector<CFakeServer::Packet> Resume(CFakeServer& server, CTestClient& client,
                                        const std::string& name, const std::string& data,
                                        const std::string& lost) {
  server.Answer(2509, Int32(1) + lost);
  client.File(name, data);
  EXPECT_EQ(client.Upload({name}), std::vector<int>{1});
  std::vector<CFakeServer::Packet> packets = server.Packets();
  packets.erase(packets.begin(), packets.begin() + 2);  // the link, 2509
  return packets;
}

std::string Resumable(const std::string& name) {
  return std::string(1, '\0') + name;
}

TEST(Resume, RangesGoIntoTheSegmentThatHoldsThem) {
  CFakeServer server;
  server.On(2500, [&](const std::string& body) {  // the newest segment holds 300 bytes
    server.Send(2500, Int32(1) + Int64(body.find("(2)") != std::string::npos ? 300 : 0));
  });
  CTestClient client(server);
  const std::string data = PatternBytes(3000);
  const std::string name = "data\\Run1.TM";
  const std::vector<CFakeServer::Packet> expected = {
      {2500, Resumable(name)},
      {2501, Int64(999) + data.substr(999, 1)},
      {2502, ""},
      {2510, Int32(0) + Int64(1000) + Int64(0)},
      {2500, Resumable("data\\Run1(1).tm")},
      {2501, Int64(0) + data.substr(1000, 20)},
      {2502, ""},
      {2510, Int32(3) + Int64(1020) + Int64(0)},
      {2500, Resumable("data\\Run1(2).tm")},
      {2501, Int64(0) + data.substr(2500, 10)},
      {2502, ""},
      {2510, Int32(4) + Int64(2510) + Int64(0)},
      {2500, Resumable("data\\Run1(2).tm")},  // and on at its end
      {2501, Int64(300) + data.substr(2800)},
      {2502, ""}};
  EXPECT_TRUE(Resume(server, client, name, data, "0|999,1,5,0,6,-3,1000,20,2500,10|1000,2500") ==
              expected);
  EXPECT_EQ(client.m_TotalTransBytes, 3000);
}

// The report carries positions behind the header length, although the server
// adds that length again to what it stores: bytes of a partly sent range can
// be skipped later. The wire stays as it is; hosts break off such uploads by
// Stop, which reports nothing.
TEST(Resume, HeaderLengthMovesRangesAndStaysInTheReport) {
  CFakeServer server;
  CTestClient client(server);
  const std::string data = PatternBytes(200);
  const auto packets = Resume(server, client, "a.tm", data, "16|100,50|");
  EXPECT_TRUE(packets[1] == CFakeServer::Packet(2501, Int64(116) + data.substr(116, 50)));
  EXPECT_TRUE(packets[3] == CFakeServer::Packet(2510, Int32(0) + Int64(166) + Int64(0)));
  EXPECT_TRUE(packets[4] == CFakeServer::Packet(2500, Resumable("a.tm"))) << "no boundaries";
}

TEST(Resume, WithoutRangesTheFileGoesOnUnderItsOwnName) {
  for (const std::string lost : {"", "128||", "0||1000,2500"}) {
    CFakeServer server;
    CTestClient client(server);
    const auto packets = Resume(server, client, "a.tm", "0123", lost);
    EXPECT_TRUE(packets == (std::vector<CFakeServer::Packet>{
                               {2500, Resumable("a.tm")}, {2501, Int64(0) + "0123"}, {2502, ""}}));
  }
}

TEST(Resume, FailuresEndTheUploadWithTheirCode) {
  CScopedSystem system(CFaultPlan().ClockFaster(100));
  const std::string huge = "9223372036854775807";
  const std::vector<std::pair<std::string, int>> answers = {
      {"5|1,2,3|", -36},
      {"|", -36},
      {"5|1,2|3|4", -36},
      {"5|,|", -33},
      {"x|0,1", -36},
      {"0|0,11|", -34},
      {"99999999999|0,4|", -34},
      {"0|-9,4|", -33},
      {"7|" + huge + "," + huge + "|-" + huge, -33}};
  for (const auto& [lost, status] : answers) {
    CFakeServer server;
    CTestClient client(server);
    client.File("a.tm", "0123456789");
    server.Answer(2509, Int32(1) + lost);
    // "5|,|" is a pair of zeros: an empty range, then the file itself.
    if (lost == "5|,|") server.Answer(2500, Int32(1) + Int64(-1));
    EXPECT_EQ(client.Upload({"a.tm"}), std::vector<int>{status}) << lost;
  }

  CFakeServer server;
  CTestClient client(server);
  EXPECT_EQ(client.Upload({"a.tm"}), std::vector<int>{-17});
  server.Answer(2509, Int32(1) + "0|0,4,4,4|8");
  EXPECT_EQ(client.Upload({"a.tm"}), std::vector<int>{-17});
  client.File("a.tm", "0123456789");
  server.Answer(2509, Int32(-29));
  EXPECT_EQ(client.Upload({"a.tm"}), std::vector<int>{-35});
  server.Silent(2509);
  EXPECT_EQ(client.Upload({"a.tm"}), std::vector<int>{-35});
  server.Answer(2509, Int32(1) + "0|0,4,4,4|8");
  server.Silent(2510);
  EXPECT_EQ(client.Upload({"a.tm"}), std::vector<int>{-19});
  server.On(2502, [&](const std::string&) {
    client.m_pLinkInfo = nullptr;
    server.Send(2502);
  });
  EXPECT_EQ(client.Upload({"a.tm"}), std::vector<int>{-18});
  client.Stop();
}

TEST(Resume, StopReportsTheRestOfItsRangeAndSendsTheOthersEmpty) {
  CFakeServer server;
  CTestClient client(server);
  const std::int64_t length = 30 << 20;
  std::filesystem::resize_file(client.File("a.tm", ""), 40 << 20);
  server.On(2501, [&](const std::string&) { client.m_bStop = true; });
  server.Answer(2509, Int32(1) + "0|100," + std::to_string(length) + ",35000000,10|");
  EXPECT_EQ(client.Upload({"a.tm"}), std::vector<int>{1});

  const std::int64_t done = client.m_llTransBytes;
  EXPECT_GT(done, 0);
  EXPECT_LT(done, length);
  EXPECT_EQ(done % (1 << 20), 0);
  const std::vector<std::string> reports = server.Bodies(2510);
  ASSERT_EQ(reports.size(), 1U);
  EXPECT_EQ(reports[0], Int32(0) + Int64(100 + done) + Int64(length - done));
  EXPECT_EQ(server.Bodies(2500).size(), 3U) << "both ranges and the file";
  EXPECT_EQ(server.Bodies(2502).size(), 3U);
  client.Stop();
}

}  // namespace
