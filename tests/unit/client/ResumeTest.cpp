// Resume of measurement files against a scripted m_server.

#include "support/TestClient.h"

namespace {

using Statuses = std::vector<int>;
using Packets = std::vector<Packet>;

class Resume : public CClientTest {
 protected:
  // Uploads a file to the server, which answers 2509 with `lost`, and returns
  // what the server received behind that.
  Packets Send(const std::string& name, const std::string& data, const std::string& lost) {
    m_server.Answer(2509, Int32(1) + lost);
    m_client.File(name, data);
    const std::ptrdiff_t before = std::ssize(m_server.Packets());
    EXPECT_EQ(m_client.Upload({name}), Statuses{1});
    const Packets packets = m_server.Packets();
    return Packets(packets.begin() + before + 1, packets.end());
  }
};

std::string Kept(const std::string& name) {
  return std::string(1, '\0') + name;
}

TEST_F(Resume, RangesGoIntoTheSegmentThatHoldsThem) {
  m_server.On(2500, [&](const std::string& body) {  // the newest segment holds 300 bytes
    m_server.Send(2500, Int32(1) + Int64(body.find("(2)") != std::string::npos ? 300 : 0));
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
  EXPECT_TRUE(Send("data\\Run1.TM", data, lost) == expected);
}

// The report carries positions behind the header length, although the server
// adds that length again to what it stores: bytes of a partly sent range can
// be skipped later. The wire stays as it is; hosts break off such uploads by
// Stop, which reports nothing.
TEST_F(Resume, HeaderLengthMovesRangesAndStaysInTheReport) {
  const std::string data = PatternBytes(200);
  const Packets packets = Send("a.tm", data, "16|100,50|");
  EXPECT_TRUE(packets[1] == Packet(2501, Int64(116) + data.substr(116, 50)));
  EXPECT_TRUE(packets[3] == Packet(2510, Int32(0) + Int64(166) + Int64(0)));
}

TEST_F(Resume, WithoutRangesTheFileGoesOnUnderItsOwnName) {
  for (const std::string lost : {"", "128||", "0||1000,2500"}) {
    const Packets expected = {{2500, Kept("a.tm")}, {2501, Int64(0) + "0123"}, {2502, ""}};
    EXPECT_TRUE(Send("a.tm", "0123", lost) == expected) << lost;
  }
}

TEST_F(Resume, StopReportsTheRestOfItsRangeAndSendsTheOthersEmpty) {
  constexpr std::int64_t kLength = 30 << 20;
  MakeSparseFile(m_client.m_files / "a.tm", 40 << 20);
  m_server.On(2501, [&](const std::string&) { m_client.m_bStop = true; });
  m_server.Answer(2509, Int32(1) + "16|100," + std::to_string(kLength) + ",35000000,10|");
  EXPECT_EQ(m_client.Upload({"a.tm"}), Statuses{1});
  const std::int64_t done = m_client.m_llTransBytes;
  EXPECT_GT(done, 0);
  EXPECT_LT(done, kLength);
  EXPECT_EQ(m_server.Bodies(2510),
            std::vector<std::string>{Int32(0) + Int64(116 + done) + Int64(kLength - done)});
  EXPECT_EQ(m_server.Bodies(2500).size(), 3U) << "both ranges and the file";
  EXPECT_EQ(m_server.Bodies(2502).size(), 3U);
  m_server.Stop();
}

}  // namespace
