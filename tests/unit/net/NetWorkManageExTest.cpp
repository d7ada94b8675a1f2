// The layer's promises about links, the order of callbacks and its end.

#include "net/NetWorkManageEx.h"

#include <future>

#include "net/IOCPBuffer.h"
#include "net/LinkInfo.h"
#include "platform/ByteOrder.h"
#include "support/RecordingSink.h"
#include "support/TestSystem.h"

namespace {

constexpr unsigned int kLoopback = 0x7f000001;

// A listening manager with its recorder.
struct SServer {
  explicit SServer(int capacity = 100) { m_bStarted = m_manager.Init(&m_sink, 0, capacity); }
  ~SServer() { m_manager.Stop(); }
  int Port() const { return m_manager.GetListenPort(); }

  CRecordingSink m_sink;
  CNetWorkManageEx m_manager;
  bool m_bStarted;
};

struct SClient {
  explicit SClient(const std::string& from = "") {
    m_manager.m_bConnectOnly = true;
    m_manager.SetLocalAddress(from);
    m_manager.Init(&m_sink, 0, 100);
  }
  ~SClient() { m_manager.Stop(); }
  ILinkInfo* Link() { return m_manager.GetAllLinkInfo().at(0); }

  CRecordingSink m_sink;
  CNetWorkManageEx m_manager;
};

CIOCPBuffer* MakeBuffer(const std::string& bytes) {
  auto* buffer = new CIOCPBuffer(static_cast<int>(bytes.size()), true, false, 0);
  bytes.copy(buffer->m_pBuf, bytes.size());
  buffer->m_nDataLen = static_cast<int>(bytes.size());
  return buffer;
}

TEST(NetWorkManageEx, LinkLivesFromConnectToDisconnect) {
  SServer server;
  SClient client("127.3.0.1");
  EXPECT_TRUE(client.m_manager.GetAllLinkInfo().empty());
  ASSERT_TRUE(client.m_manager.ConnectToHost("127.0.0.1", server.Port()));
  EXPECT_EQ(client.m_sink.Events().size(), 1U);  // code 1 came before the return
  ILinkInfo* link = client.Link();
  EXPECT_EQ(link->GetIP(), kLoopback);
  EXPECT_EQ(link->GetPort(), server.Port());

  ASSERT_TRUE(client.m_manager.DirectSendData(link, MakeBuffer(MakePacket(2511, "hello"))));
  ASSERT_TRUE(server.m_sink.WaitForCode(2511));
  const CRecordingSink::SEvent got = server.m_sink.Events().back();
  EXPECT_EQ(got.m_strBody, "hello");
  EXPECT_EQ(CNetWorkManageEx::TransIP(got.m_nIP), "127.3.0.1");

  const std::string answer = MakePacket(2511, std::string(5 << 20, 'x'));
  const int bytes = static_cast<int>(answer.size());
  EXPECT_TRUE(server.m_manager.SendText(got.m_nIP, got.m_nPort, answer.data(), bytes));
  EXPECT_FALSE(server.m_manager.SendText(got.m_nIP, got.m_nPort + 1, answer.data(), bytes));
  ASSERT_TRUE(client.m_sink.WaitForCode(2511));
  EXPECT_EQ(client.m_sink.Events().back().m_strBody.size(), std::size_t{5} << 20);

  client.m_manager.CloseAllConnect();
  EXPECT_EQ(client.m_sink.Events().back().m_nCode, 0);
  EXPECT_FALSE(link->IsLink());
  EXPECT_FALSE(client.m_manager.DirectSendData(link, MakeBuffer("late")));
  ASSERT_TRUE(server.m_sink.WaitForCode(0));
  server.m_manager.Stop();
  client.m_manager.Stop();
  std::vector<int> codes;
  for (const auto& event : server.m_sink.Events()) codes.push_back(event.m_nCode);
  EXPECT_EQ(codes, (std::vector<int>{1, 2511, 0}));
  for (CIOCPBuffer* buffer : client.m_sink.Released()) delete buffer;
}

TEST(NetWorkManageEx, EveryBufferComesBackOnceAndNeverOnTheCallersThread) {
  CRecordingSink sink;
  SServer server;
  std::set<CIOCPBuffer*> given;
  const auto make = [&] { return *given.insert(MakeBuffer(std::string(65536, 'x'))).first; };
  {
    CNetWorkManageEx manager;
    manager.m_bConnectOnly = true;
    EXPECT_FALSE(manager.DirectSendData(nullptr, make()));  // not started: kept for later
    ASSERT_TRUE(manager.Init(&sink, 0, 100));
    ASSERT_TRUE(sink.WaitFor([](const auto& s) { return s.Released().size() == 1; }));
    EXPECT_FALSE(manager.DirectSendData(nullptr, make()));
    ASSERT_TRUE(manager.ConnectToHost("127.0.0.1", server.Port()));
    ILinkInfo* link = manager.GetAllLinkInfo().at(0);
    CIOCPBuffer* malformed = make();
    malformed->m_nDataLen = 65537;
    EXPECT_FALSE(manager.DirectSendData(link, malformed));
    // Far more than the socket takes: the handler of the other side is held.
    std::promise<void> release;
    server.m_sink.OnMessage([held = release.get_future().share()](const auto& event) {
      if (event.m_nCode == 2501) held.wait();
    });
    const std::string packet = MakePacket(2501, "");
    EXPECT_TRUE(manager.DirectSendData(link, *given.insert(MakeBuffer(packet)).first));
    int taken = 0;
    while (link->WaitSendRoom(0)) taken += manager.DirectSendData(link, make()) ? 1 : 0;
    EXPECT_GE(taken, 64);
    EXPECT_LE(taken, 64 + 64 * 4);  // 64 queued, the rest in the sockets
    manager.Stop();
    release.set_value();
    EXPECT_FALSE(manager.DirectSendData(link, make()));  // the destructor's, not the sink's
  }
  EXPECT_EQ(sink.Released().size(), given.size() - 1);
  EXPECT_EQ(std::set<CIOCPBuffer*>(sink.Released().begin(), sink.Released().end()).size(),
            sink.Released().size());
  EXPECT_EQ(sink.ReleaseThreads().count(std::this_thread::get_id()), 0U);
  for (CIOCPBuffer* buffer : sink.Released()) delete buffer;
}

TEST(NetWorkManageEx, NewerLinkTakesTheParserAndTheOlderIsDiscarded) {
  SServer server;
  CNetBuffer parser(0, 0);
  server.m_sink.m_pSharedParser = &parser;
  CRawClient first(server.Port(), "127.3.0.2");
  const std::string packet = MakePacket(2501, "from the first");
  ASSERT_TRUE(first.Send(packet.substr(0, 25)));
  ASSERT_TRUE(server.m_sink.WaitForCode(1, 1));
  CRawClient second(server.Port(), "127.3.0.2");
  ASSERT_TRUE(server.m_sink.WaitForCode(1, 2));

  for (int i = 0; i < 2000; ++i) ASSERT_TRUE(first.Send(packet));
  ASSERT_TRUE(second.Send(MakePacket(2502, "from the second")));
  ASSERT_TRUE(server.m_sink.WaitForCode(2502));
  first.Close();
  ASSERT_TRUE(server.m_sink.WaitForCode(0));
  ASSERT_TRUE(second.Send(MakePacket(2503, "")));
  ASSERT_TRUE(server.m_sink.WaitForCode(2503));
  server.m_manager.Stop();
  EXPECT_EQ(server.m_sink.Count(2501), 0U);
}

TEST(NetWorkManageEx, LinksOfOneAddressTakeTurnsAndOthersDoNotWait) {
  SServer server;
  std::promise<void> release;
  server.m_sink.OnMessage([held = release.get_future().share()](const auto& event) {
    if (event.m_nCode == 2501) held.wait();
  });
  CRawClient blocked(server.Port(), "127.3.0.3");
  ASSERT_TRUE(blocked.Send(MakePacket(2501, "")));
  ASSERT_TRUE(server.m_sink.WaitForCode(2501));

  CRawClient same(server.Port(), "127.3.0.3");
  ASSERT_TRUE(same.Send(MakePacket(2502, "")));
  CRawClient other(server.Port(), "127.3.0.4");
  ASSERT_TRUE(other.Send(MakePacket(2503, "")));
  ASSERT_TRUE(server.m_sink.WaitForCode(2503));
  EXPECT_TRUE(server.m_sink.WaitFor([](const auto& s) { return s.Count(1) == 2; }));
  release.set_value();
  EXPECT_TRUE(server.m_sink.WaitForCode(2502));
  server.m_manager.Stop();
}

TEST(NetWorkManageEx, CapacityCountsLinksThatAreUp) {
  SServer server(2);
  CRawClient one(server.Port(), "127.3.0.5");
  std::promise<void> release;
  server.m_sink.OnMessage([held = release.get_future().share()](const auto& event) {
    if (event.m_nCode == 0) held.wait();
  });
  {
    CRawClient two(server.Port(), "127.3.0.6");
    ASSERT_TRUE(server.m_sink.WaitForCode(1, 2));
    CRawClient three(server.Port(), "127.3.0.7");
    EXPECT_TRUE(three.WaitClosed());
  }
  ASSERT_TRUE(server.m_sink.WaitForCode(0));  // its handler still runs
  CRawClient four(server.Port(), "127.3.0.8");
  EXPECT_TRUE(server.m_sink.WaitForCode(1, 3));
  release.set_value();
  server.m_sink.m_bRefuse = true;
  one.Close();
  ASSERT_TRUE(server.m_sink.WaitForCode(0, 2));
  CRawClient five(server.Port(), "127.3.0.9");
  EXPECT_TRUE(five.WaitClosed());  // no parser, no link
  server.m_manager.Stop();
  EXPECT_EQ(server.m_sink.Count(1), 3U);
}

TEST(NetWorkManageEx, GarbageClosesOnlyItsOwnLink) {
  SServer server;
  CRawClient good(server.Port(), "127.3.0.10");
  CRawClient bad(server.Port(), "127.3.0.11");
  CRawClient half(server.Port(), "127.3.0.12");
  std::string huge = MakePacket(2501, "");
  WriteUInt32(huge.data() + 12, 0x7fffff00);
  ASSERT_TRUE(half.Send(huge + "a little of two gigabytes"));
  ASSERT_TRUE(bad.Send(PatternBytes(4096)));
  EXPECT_TRUE(bad.WaitClosed());
  ASSERT_TRUE(server.m_sink.WaitForCode(0));
  ASSERT_TRUE(good.Send(MakePacket(2511, "")));
  EXPECT_TRUE(server.m_sink.WaitForCode(2511));
  EXPECT_EQ(server.m_manager.GetAllLinkInfo().size(), 2U);
  server.m_manager.Stop();
  EXPECT_EQ(server.m_sink.Count(0), 1U);  // only the closed link; Stop announces nothing
}

TEST(NetWorkManageEx, CallbacksMayStopCloseAndConnect) {
  std::promise<bool> reconnected;
  SServer server;
  server.m_sink.OnMessage([&](const auto& event) {
    if (event.m_nCode == 2502) server.m_manager.Stop();
  });
  SClient client;
  client.m_sink.OnMessage([&](const auto& event) {
    if (event.m_nCode != 2511) return;
    client.m_manager.CloseAllConnect();
    reconnected.set_value(client.m_manager.ConnectToHost("127.0.0.1", server.Port()));
  });
  ASSERT_TRUE(client.m_manager.ConnectToHost("127.0.0.1", server.Port()));
  ASSERT_TRUE(server.m_sink.WaitForCode(1));
  const CRecordingSink::SEvent up = server.m_sink.Events()[0];
  const std::string ask = MakePacket(2511, "");
  ASSERT_TRUE(server.m_manager.SendText(up.m_nIP, up.m_nPort, ask.data(), 20));
  EXPECT_TRUE(reconnected.get_future().get());
  // Two callbacks of different addresses stop at once.
  CRawClient one(server.Port(), "127.3.0.13");
  CRawClient two(server.Port(), "127.3.0.14");
  ASSERT_TRUE(server.m_sink.WaitForCode(1, 4));
  one.Send(MakePacket(2502, ""));
  two.Send(MakePacket(2502, ""));
  EXPECT_TRUE(one.WaitClosed());
  EXPECT_TRUE(two.WaitClosed());
  ASSERT_TRUE(client.m_sink.WaitFor([](const auto& s) { return s.Count(0) == 2; }));
}

TEST(NetWorkManageEx, StartsAndStopsAgainAndAgain) {
  CRecordingSink sink;
  CNetWorkManageEx manager;
  manager.Stop();  // harmless before Init
  ASSERT_TRUE(manager.Init(&sink, 0, 100));
  EXPECT_FALSE(manager.Init(&sink, 0, 100));
  const int port = manager.GetListenPort();
  CNetWorkManageEx rival;
  EXPECT_FALSE(rival.Init(&sink, port, 100));
  for (int i = 0; i < 100; ++i) {
    CRawClient client(port);
    ASSERT_TRUE(client.IsOpen());
    manager.Stop();
    EXPECT_TRUE(client.WaitClosed());
    ASSERT_TRUE(manager.Init(&sink, port, 100));
  }
  EXPECT_FALSE(manager.ConnectToHost("no.such.host.invalid", 9));
  manager.Stop();
  EXPECT_EQ(sink.Count(0), 0U);
}

TEST(NetWorkManageEx, ServerThatClosesAtOnceLeavesNoHalfConnectedClient) {
  SServer server(0);  // closes every connection
  SClient client;
  for (int i = 0; i < 300; ++i) {
    client.m_manager.ConnectToHost("127.0.0.1", server.Port());
    client.m_manager.CloseAllConnect();
    EXPECT_TRUE(client.m_manager.GetAllLinkInfo().empty());
  }
  client.m_manager.Stop();
  int up = 0;
  for (const auto& event : client.m_sink.Events()) {
    up += event.m_nCode == 1 ? 1 : -1;
    ASSERT_TRUE(up == 0 || up == 1);  // each link is gone before the next one comes
  }
  EXPECT_EQ(up, 0);
}

TEST(NetWorkManageEx, WithoutThreadsNothingStartsAndNothingIsLost) {
  CScopedSystem system(CFaultPlan().NoThreads());
  CRecordingSink sink;
  CNetWorkManageEx manager;
  EXPECT_FALSE(manager.Init(&sink, 0, 100));
  system.Heal();
  EXPECT_TRUE(manager.Init(&sink, 0, 100));
}

}  // namespace
