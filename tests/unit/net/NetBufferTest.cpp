// The receive side of a link: packets come out whole, in order, whatever the
// chunks they arrive in.

#include "net/NetBuffer.h"

#include "net/NetWorkPackHead.h"
#include "support/RecordingSink.h"

namespace {

class NetBuffer : public testing::Test {
 protected:
  NetBuffer() { m_buffer.m_pOwner = &m_sink; }
  void Receive(const std::string& bytes) { m_buffer.DealNetData(bytes.data(), bytes.size()); }

  CRecordingSink m_sink;
  CNetBuffer m_buffer{7, 9};
};

const std::string kFirst = MakePacket(2501, "first");
const std::string kSecond = MakePacket(2502, "second");

TEST_F(NetBuffer, UnfinishedPacketsThatShareMemoryAreBounded) {
  const std::string head = MakePacket(2504).replace(12, 4, Int32(kMaxBodyBytes));
  const std::string block(8 << 20, 'x');
  CNetBuffer other(8, 9);
  const auto begin = [&](CNetBuffer& buffer, int blocks) {
    buffer.ClearData();
    buffer.ShareMemory();
    buffer.DealNetData(head.data(), head.size());
    while (blocks-- > 0) buffer.DealNetData(block.data(), block.size());
    return !buffer.IsBroken();
  };
  EXPECT_TRUE(begin(m_buffer, 8));
  EXPECT_FALSE(begin(other, 9));
  EXPECT_TRUE(begin(m_buffer, 0));  // and gives the memory back
  EXPECT_TRUE(begin(other, 8));
}

TEST_F(NetBuffer, ClearingDropsThePartialPacketAndEndsARunningDelivery) {
  for (const std::string& begun : {kFirst.substr(0, kFirst.size() - 1), std::string(20, 'x')}) {
    Receive(begun);
    m_buffer.ClearData();
  }
  Receive(MakePacket(0) + MakePacket(1) + kSecond);  // the first two are the layer's own
  EXPECT_EQ(m_sink.Packets(), std::vector<Packet>({{2502, "second"}}));

  // Clearing from inside the delivery, first of a whole packet, then of one
  // that had to be gathered: the bytes behind it are gone, later ones count.
  m_sink.On(2501, [&](const std::string&) { m_buffer.ClearData(); });
  const std::string both = kFirst + kSecond + kSecond.substr(0, 7);
  Receive(both);
  Receive(both.substr(0, 3));
  Receive(both.substr(3));
  EXPECT_EQ(m_sink.Count(2501), 2U);
  EXPECT_EQ(m_sink.Count(2502), 1U);
  Receive(kSecond);
  EXPECT_EQ(m_sink.Count(2502), 2U);
}

}  // namespace
