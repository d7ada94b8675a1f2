// The receive side of a link: packets come out whole, in order, whatever the
// chunks they arrive in.

#include "net/NetBuffer.h"

#include <climits>

#include "net/NetWorkPackHead.h"
#include "support/RecordingSink.h"

namespace {

std::vector<std::string> Bodies(const CRecordingSink& sink) {
  std::vector<std::string> bodies;
  for (const auto& event : sink.Events()) bodies.push_back(event.m_strBody);
  return bodies;
}

std::string HeadWith(std::size_t offset, const std::string& bytes) {
  return MakePacket(2501, "").replace(offset, bytes.size(), bytes);
}

TEST(NetBuffer, PacketsArriveWholeInAnyChunking) {
  const std::vector<std::string> sent = {"", std::string(100000, 'a'), "b", std::string(20, 'c'),
                                         ""};
  std::string stream;
  for (const std::string& body : sent) stream += MakePacket(2501, body);
  for (const std::size_t chunk : {std::size_t{1}, std::size_t{19}, std::size_t{20}, std::size_t{21},
                                  std::size_t{1448}, std::size_t{65536}, stream.size()}) {
    CRecordingSink sink;
    CNetBuffer buffer(7, 9);
    buffer.m_pOwner = &sink;
    for (std::size_t at = 0; at < stream.size(); at += chunk) {
      const std::string part = stream.substr(at, chunk);
      buffer.DealNetData(part.data(), part.size());
    }
    EXPECT_EQ(Bodies(sink), sent) << "chunks of " << chunk;
    EXPECT_EQ(sink.Events()[0].m_nIP, 7U);
    EXPECT_EQ(sink.Events()[0].m_nPort, 9);
  }
}

TEST(NetBuffer, MalformedHeadBreaksTheLinkUntilCleared) {
  std::string tooLong(4, '\0');
  WriteUInt32(tooLong.data(), static_cast<std::uint32_t>(kMaxBodyBytes) + 1);
  const std::vector<std::string> heads = {HeadWith(0, "KQFX"), HeadWith(8, std::string("\x02", 1)),
                                          HeadWith(12, tooLong), HeadWith(12, "\xff\xff\xff\xff")};
  for (const std::string& head : heads) {
    for (const std::size_t cut : {std::size_t{0}, std::size_t{5}}) {
      CRecordingSink sink;
      CNetBuffer buffer(0, 0);
      buffer.m_pOwner = &sink;
      const std::string good = MakePacket(2502, "");
      buffer.DealNetData(good.data(), good.size());
      buffer.DealNetData(head.data(), cut);
      buffer.DealNetData(head.data() + cut, head.size() - cut);
      buffer.DealNetData(good.data(), good.size());
      EXPECT_TRUE(buffer.IsBroken());
      EXPECT_EQ(sink.Count(2502), 1U);

      buffer.ClearData();
      buffer.DealNetData(good.data(), good.size());
      EXPECT_FALSE(buffer.IsBroken());
      EXPECT_EQ(sink.Count(2502), 2U);
    }
  }
}

TEST(NetBuffer, ClearingDropsThePartialPacketAndEndsARunningDelivery) {
  CRecordingSink sink;
  CNetBuffer buffer(0, 0);
  buffer.m_pOwner = &sink;
  const std::string first = MakePacket(2501, "first");
  const std::string second = MakePacket(2502, "second");
  buffer.DealNetData(first.data(), first.size() - 1);
  buffer.ClearData();
  buffer.DealNetData(second.data(), second.size());
  EXPECT_EQ(Bodies(sink), std::vector<std::string>{"second"});

  // Clearing from inside the delivery, first of a whole packet, then of one
  // that had to be gathered: the bytes behind it are gone, later ones count.
  sink.OnMessage([&](const CRecordingSink::SEvent& event) {
    if (event.m_nCode == 2501) buffer.ClearData();
  });
  const std::string both = first + second + second.substr(0, 7);
  buffer.DealNetData(both.data(), both.size());
  EXPECT_EQ(sink.Count(2501), 1U);
  EXPECT_EQ(sink.Count(2502), 1U);
  buffer.DealNetData(both.data(), 3);
  buffer.DealNetData(both.data() + 3, both.size() - 3);
  EXPECT_EQ(sink.Count(2501), 2U);
  EXPECT_EQ(sink.Count(2502), 1U);
  buffer.DealNetData(second.data(), second.size());
  EXPECT_EQ(sink.Count(2502), 2U);
}

TEST(NetBuffer, LinkEventsAreNotTakenFromTheWire) {
  CRecordingSink sink;
  CNetBuffer buffer(0, 0);
  buffer.m_pOwner = &sink;
  const std::string packets = MakePacket(0, "") + MakePacket(1, "x") + MakePacket(2511, "");
  buffer.DealNetData(packets.data(), packets.size());
  ASSERT_EQ(sink.Events().size(), 1U);
  EXPECT_EQ(sink.Events()[0].m_nCode, 2511);
}

}  // namespace
