// The client's send buffers.

#include <set>

#include "support/TestClient.h"

namespace {

using SendBufferPool = CClientTest;

TEST_F(SendBufferPool, SixtyFifthBufferIsAnExtraOne) {
  std::set<CIOCPBuffer*> taken;
  for (int i = 0; i < 64; ++i) taken.insert(m_client.GetIOCPBuffer());
  EXPECT_EQ(taken.size(), 64U);
  CIOCPBuffer* const extra = m_client.GetIOCPBuffer();
  EXPECT_EQ(m_client.m_mapBuffer.count(extra), 0U);
  EXPECT_EQ(extra->m_nBufSize, 65536);

  m_client.ReleaseBuffer(extra);  // destroyed, or the leak checker tells
  CIOCPBuffer* const second = *std::next(taken.begin());
  m_client.ReleaseBuffer(second);
  EXPECT_EQ(m_client.GetIOCPBuffer(), second);
  for (CIOCPBuffer* buffer : taken) m_client.ReleaseIOCPBuffer(buffer);
  EXPECT_EQ(m_client.m_nBufTaken, 66);
  EXPECT_EQ(m_client.m_nBufReleased, 66);
}

TEST_F(SendBufferPool, BuffersOnTheirWayAreBrakedFromThreeHundredOn) {
  m_system.Follow(CFaultPlan().ClockFaster(100));
  const std::string data(65509, 'x');
  EXPECT_TRUE(m_client.SendData(7, data.data(), 0));
  EXPECT_TRUE(m_client.SendData(200, data.data(), 65509));
  EXPECT_EQ(m_client.m_nBufTaken, 2);
  EXPECT_EQ(m_client.m_llTransBytes, 65509);
  EXPECT_TRUE(WaitUntil([&] { return m_client.m_nBufReleased == 2; }));

  struct CUncounted : CTestClient {  // what it gets back
    using CTestClient::CTestClient;
    ~CUncounted() override { Stop(); }
    bool ReleaseIOCPBuffer(CIOCPBuffer* p) override { return m_mapBuffer.at(p) = true; }
  } client(m_server.Port());
  client.m_nBufReleased = -298;
  EXPECT_TRUE(client.SendData(0, "x", 1));  // makes 299
  EXPECT_EQ(m_system.SleptMilliseconds(), 0);
  EXPECT_TRUE(client.SendData(0, "x", 1));
  EXPECT_EQ(m_system.SleptMilliseconds(), 100);
}

}  // namespace
