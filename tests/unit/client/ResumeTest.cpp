// Resume of measurement files against a scripted server.

#include <filesystem>

#include "support/TestClient.h"

namespace {

using Statuses = std::vector<int>;
using Packets = std::vector<CFakeServer::Packet>;

// Uploads a file to a server that answers 2509 with `lost`, and returns what
// the server received behind that.
Packets Resume(CFakeServer& server, const std::string& name, const std::string& data,
               const std::string& lost) {
  CTestClient client(server);
  server.Answer(2509, Int32(1) + lost);
  client.File(name, data);
  EXPECT_EQ(client.Upload({name}), Statuses{1});
  Packets packets = server.Packets();
  packets.erase(packets.begin(), packets.begin() + 2);  // the link, 2509
  return packets;
}

std::string Kept(const std::string& name) {
  return std::string(1, '\0') + name;
}

TEST(Resume, RangesGoIntoTheSegmentThatHoldsThem) {
  CFakeServer server;
  server.On(2500, [&](const std::string& body) {  // the newest segment holds 300 bytes
    server.Send(2500, Int32(1) + Int64(body.find("(2)") != std::string::npos ? 300 : 0));
  });
  const std::string data = PatternBytes(3000);
  const std::string lost = "0|999,1,5,0,6,-3,1000,20,2500,10|1000,2500";
  const Packets expected = {{2500, Kept("data\\Run1.TM")},
                            {2501, Int64(999) + data.substr(999, 1)},
                            {2502, ""},
                            {2510, Int32(0) + Int64(1000) + Int64(0)},
                            {2500, Kept("data\\Run1(1).tm")},
                            {2501, Int64(0) + data.substr(1000, 20)},
                            {2502, ""},
                            {2510, Int32(3) + Int64(1020) + Int64(0)},
                            {2500, Kept("data\\Run1(2).tm")},
                            {2501, Int64(0) + data.substr(2500, 10)},
                            {2502, ""},
                            {2510, Int32(4) + Int64(2510) + Int64(0)},
                            {2500, Kept("data\\Run1(2).tm")},  // and on behind its end
                            {2501, Int64(300) + data.substr(2800)},
                            {2502, ""}};
  EXPECT_TRUE(Resume(server, "data\\Run1.TM", data, lost) == expected);
}

// The report carries positions behind the header length, although the server
// adds that length again to what it stores: bytes of a partly sent range can
// be skipped later. The wire stays as it is; hosts break off such uploads by
// Stop, which reports nothing.
TEST(Resume, HeaderLengthMovesRangesAndStaysInTheReport) {
  CFakeServer server;
  const std::string data = PatternBytes(200);
  const Packets packets = Resume(server, "a.tm", data, "16|100,50|");
  EXPECT_TRUE(packets[1] == CFakeServer::Packet(2501, Int64(116) + data.substr(116, 50)));
  EXPECT_TRUE(packets[3] == CFakeServer::Packet(2510, Int32(0) + Int64(166) + Int64(0)));
}

TEST(Resume, WithoutRangesTheFileGoesOnUnderItsOwnName) {
  for (const std::string lost : {"", "128||", "0||1000,2500"}) {
    CFakeServer server;
    const Packets expected = {{2500, Kept("a.tm")}, {2501, Int64(0) + "0123"}, {2502, ""}};
    EXPECT_TRUE(Resume(server, "a.tm", "0123", lost) == expected) << lost;
  }
}

TEST(Resume, FailuresEndTheUploadWithTheirCode) {
  CScopedSystem system(CFaultPlan().ClockFaster(100));
  const std::string huge = "9223372036854775807";
  const std::vector<std::pair<std::string, int>> answers = {
      {"5|1,2,3|", -36},  {"|", -36},
      {"5|1,2|3|4", -36}, {"0|0,11|", -34},
      {"0|-9,4|", -33},   {"99999999999|0,4|", -34},
      {"0|0,4|", -19},    {"7|" + huge + "," + huge + "|-" + huge, -33}};
  CFakeServer server;
  server.Silent(2510);
  CTestClient client(server);
  server.Answer(2509, Int32(1) + "0|0,4|");
  EXPECT_EQ(client.Upload({"a.tm"}), Statuses{-17});
  client.File("a.tm", "0123456789");
  for (const auto& [lost, status] : answers) {
    server.Answer(2509, Int32(1) + lost);
    EXPECT_EQ(client.Upload({"a.tm"}), Statuses{status}) << lost;
  }
  server.Answer(2509, Int32(-29));
  EXPECT_EQ(client.Upload({"a.tm"}), Statuses{-35});
  server.Silent(2509);
  EXPECT_EQ(client.Upload({"a.tm"}), Statuses{-35});
  server.Answer(2509, Int32(1) + "0|0,4|");
  server.On(2502, [&](const std::string&) {
    client.m_pLinkInfo = nullptr;
    server.Send(2502);
  });
  EXPECT_EQ(client.Upload({"a.tm"}), Statuses{-18});
  server.Stop();
}

TEST(Resume, StopReportsTheRestOfItsRangeAndSendsTheOthersEmpty) {
  CFakeServer server;
  CTestClient client(server);
  constexpr std::int64_t kLength = 30 << 20;
  std::filesystem::resize_file(client.File("a.tm", ""), 40 << 20);
  server.On(2501, [&](const std::string&) { client.m_bStop = true; });
  server.Answer(2509, Int32(1) + "16|100," + std::to_string(kLength) + ",35000000,10|");
  EXPECT_EQ(client.Upload({"a.tm"}), Statuses{1});
  const std::int64_t done = client.m_llTransBytes;
  EXPECT_GT(done, 0);
  EXPECT_LT(done, kLength);
  EXPECT_EQ(server.Bodies(2510),
            std::vector<std::string>{Int32(0) + Int64(116 + done) + Int64(kLength - done)});
  EXPECT_EQ(server.Bodies(2500).size(), 3U) << "both ranges and the file";
  EXPECT_EQ(server.Bodies(2502).size(), 3U);
  server.Stop();
}

}  // namespace
