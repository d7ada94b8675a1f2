// The client's send buffers, and data cut into packets.

#include <set>

#include "protocol/DataPacket.h"
#include "protocol/MessageCodes.h"
#include "support/TestClient.h"

namespace {

TEST(SendBufferPool, SixtyFifthBufferIsAnExtraOne) {
  CTestClient client;
  std::set<CIOCPBuffer*> taken;
  for (int i = 0; i < 64; ++i) taken.insert(client.GetIOCPBuffer());
  EXPECT_EQ(taken.size(), 64U);
  for (CIOCPBuffer* buffer : taken) EXPECT_EQ(client.m_mapBuffer.count(buffer), 1U);
  CIOCPBuffer* const extra = client.GetIOCPBuffer();
  EXPECT_EQ(client.m_mapBuffer.count(extra), 0U);
  EXPECT_EQ(extra->m_nBufSize, 65536);

  client.ReleaseBuffer(extra);  // destroyed, or the leak checker tells
  client.ReleaseBuffer(new CIOCPBuffer(20, true, false, 0));
  CIOCPBuffer* const second = client.m_mapBuffer.upper_bound(*taken.begin())->first;
  client.ReleaseBuffer(second);
  EXPECT_EQ(client.GetIOCPBuffer(), second);
  for (CIOCPBuffer* buffer : taken) client.ReleaseIOCPBuffer(buffer);
  EXPECT_EQ(client.m_nBufTaken, 66);
  EXPECT_EQ(client.m_nBufReleased, 67);
  EXPECT_EQ(client.m_mapBuffer.size(), 64U);
}

TEST(SendBufferPool, BlocksAreCutAtTheSizeOfABuffer) {
  CFakeServer server;
  CTestClient client(server);
  const std::string data = PatternBytes(65509);
  EXPECT_TRUE(client.SendData(7, data.data(), 0));
  EXPECT_TRUE(client.SendData(100, data.data(), 65508));
  EXPECT_EQ(client.m_nBufTaken, 1);
  EXPECT_TRUE(client.SendData(200, data.data(), 65509));
  EXPECT_EQ(client.m_nBufTaken, 3);
  EXPECT_EQ(client.m_llTransBytes, 65508 + 65509);
  ASSERT_TRUE(server.WaitFor(NET_CTS_TRANSFILEDATA, 3));
  const std::vector<std::string> bodies = server.Bodies(NET_CTS_TRANSFILEDATA);
  EXPECT_TRUE(bodies[0] == Int64(100) + data.substr(0, 65508));
  EXPECT_TRUE(bodies[1] == Int64(200) + data.substr(0, 65508));
  EXPECT_EQ(bodies[2], Int64(200 + 65508) + data.back());
}

TEST(SendBufferPool, BrakePausesOnceThreeHundredBuffersAreOut) {
  CScopedSystem system(CFaultPlan().ClockFaster(100));
  CFakeServer server;
  CTestClient client(server);
  client.m_nBufReleased = -298;  // one buffer of its own makes 299
  EXPECT_TRUE(client.SendData(0, "x", 1));
  EXPECT_EQ(system.SleptMilliseconds(), 0);
  client.m_nBufReleased = -400;
  EXPECT_TRUE(client.SendData(0, "x", 1));
  EXPECT_EQ(system.SleptMilliseconds(), 100);
}

}  // namespace
