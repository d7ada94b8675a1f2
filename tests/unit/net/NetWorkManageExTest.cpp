// The layer's promises about links, the order of callbacks and its end.

#include "net/NetWorkManageEx.h"

#include <future>

#include "net/IOCPBuffer.h"
#include "net/LinkBinding.h"
#include "net/LinkInfo.h"
#include "support/FakeServer.h"
#include "support/Sockets.h"
#include "support/TestSystem.h"

namespace {

// A manager that connects out.
struct SClient : CRecordingSink {
  explicit SClient(const std::string& from = "") {
    m_manager.m_bConnectOnly = true;
    m_manager.SetLocalAddress(from);
    EXPECT_TRUE(m_manager.Init(this, 0, 100));
  }
  ~SClient() override { m_manager.Stop(); }
  bool Connect(const CRecordingServer& server) {
    return m_manager.ConnectToHost("127.0.0.1", server.Port());
  }
  ILinkInfo* Link() { return m_manager.GetAllLinkInfo().at(0); }

  CNetWorkManageEx m_manager;
};

CIOCPBuffer* MakeBuffer(const std::string& bytes) {
  auto* buffer = new CIOCPBuffer(static_cast<int>(bytes.size()), true, false, 0);
  bytes.copy(buffer->m_pBuf, bytes.size());
  buffer->m_nDataLen = static_cast<int>(bytes.size());
  return buffer;
}

// Holds the delivery of a code until it is released, at the latest by its end.
struct SHold {
  SHold(CRecordingSink& sink, int code) {
    sink.On(code, [held = m_release.get_future().share()](const std::string&) { held.wait(); });
  }
  void Release() { m_release.set_value(); }

  std::promise<void> m_release;
};

TEST(NetWorkManageEx, LinkLivesFromConnectToDisconnect) {
  CRecordingServer server;
  SClient client("127.3.0.1");
  EXPECT_FALSE(client.m_manager.Init(&client, 0, 100));  // runs already
  EXPECT_FALSE(client.m_manager.ConnectToHost("no.such.host.invalid", 9));
  ASSERT_TRUE(client.Connect(server));
  EXPECT_EQ(client.Packets().size(), 1U);  // code 1 came before the return
  ILinkInfo* link = client.Link();
  EXPECT_EQ(link->GetIP(), 0x7f000001U);
  EXPECT_EQ(link->GetPort(), server.Port());

  ASSERT_TRUE(link->WaitSendRoom(50));  // kept back for a next packet that never comes
  ASSERT_TRUE(client.m_manager.DirectSendData(link, MakeBuffer(MakePacket(2511, "hello"))));
  ASSERT_TRUE(server.WaitFor(2511));
  EXPECT_EQ(CNetWorkManageEx::TransIP(server.m_nIP), "127.3.0.1");
  const std::string answer(5 << 20, 'x');
  EXPECT_TRUE(server.Send(2511, answer));
  ASSERT_TRUE(client.WaitFor(2511));
  EXPECT_TRUE(client.Bodies(2511)[0] == answer);

  client.m_manager.CloseAllConnect();
  EXPECT_EQ(client.Packets().back().first, 0);
  EXPECT_FALSE(link->IsLink());
  EXPECT_FALSE(client.m_manager.DirectSendData(link, MakeBuffer("late")));
  ASSERT_TRUE(server.WaitFor(0));
  EXPECT_FALSE(server.Send(2511));
  EXPECT_EQ(server.Packets(), (std::vector<Packet>{{1, ""}, {2511, "hello"}, {0, ""}}));
}

TEST(NetWorkManageEx, EveryBufferComesBackOnceAndNeverOnTheCallersThread) {
  CRecordingSink sink;
  CRecordingServer server;
  SHold hold(server, 2501);
  std::size_t given = 0;
  const auto make = [&](const std::string& bytes = std::string(65536, 'x')) {
    ++given;
    return MakeBuffer(bytes);
  };
  {
    CNetWorkManageEx manager;
    manager.m_bConnectOnly = true;
    EXPECT_FALSE(manager.DirectSendData(nullptr, make()));  // not started: kept for later
    ASSERT_TRUE(manager.Init(&sink, 0, 100));
    EXPECT_TRUE(WaitUntil([&] { return sink.Released() == 1; }));
    EXPECT_FALSE(manager.DirectSendData(nullptr, make()));
    ASSERT_TRUE(manager.ConnectToHost("127.0.0.1", server.Port()));
    ILinkInfo* link = manager.GetAllLinkInfo().at(0);
    CIOCPBuffer* malformed = make();
    malformed->m_nDataLen = 65537;
    EXPECT_FALSE(manager.DirectSendData(link, malformed));
    // Far more than the socket takes: the handler of the other side is held.
    EXPECT_TRUE(manager.DirectSendData(link, make(MakePacket(2501))));
    int taken = 0;
    while (link->WaitSendRoom(0)) taken += manager.DirectSendData(link, make()) ? 1 : 0;
    EXPECT_GE(taken, 16);
    EXPECT_LE(taken, 16 + 64 * 4);  // 16 queued, the rest in the sockets
    manager.Stop();
    hold.Release();
    EXPECT_FALSE(manager.DirectSendData(link, make()));  // the destructor's, not the sink's
  }
  EXPECT_EQ(sink.Released(), given - 1);
}

TEST(NetWorkManageEx, NewerLinkTakesTheParserAndTheOlderIsDiscarded) {
  CRecordingServer server;
  CNetBuffer parser(0, 0);
  server.m_pSharedParser = &parser;
  CRawClient first(server.Port(), "127.3.0.2");
  const std::string packet = MakePacket(2501, "from the first");
  ASSERT_TRUE(first.Send(packet.substr(0, 25)));
  ASSERT_TRUE(server.WaitFor(1, 1));
  const CRawClient second(server.Port(), "127.3.0.2");
  ASSERT_TRUE(server.WaitFor(1, 2));

  for (int i = 0; i < 2000; ++i) ASSERT_TRUE(first.Send(packet));
  ASSERT_TRUE(second.Send(MakePacket(2502, "from the second")));
  ASSERT_TRUE(server.WaitFor(2502));
  first.Close();
  ASSERT_TRUE(server.WaitFor(0));
  ASSERT_TRUE(second.Send(MakePacket(2503)));
  ASSERT_TRUE(server.WaitFor(2503));
  server.Stop();
  EXPECT_EQ(server.Count(2501), 0U);
}

TEST(NetWorkManageEx, NothingMeantForALinkReachesANewerOneFromTheSamePort) {
  CRecordingServer server;
  std::promise<void> release;
  std::atomic<bool> answered = true;
  server.On(2511, [&](const std::string&) {
    release.get_future().wait();
    answered = server.Send(2511, "late");
  });
  CRawClient client(server.Port(), "127.3.0.27");
  ASSERT_TRUE(client.Send(MakePacket(2511)));
  ASSERT_TRUE(server.WaitFor(2511));
  const ILinkInfo* const first = server.Link();
  client.Reconnect();
  ASSERT_TRUE(WaitUntil([&] { return !first->IsLink(); }));  // the new link is there
  EXPECT_FALSE(server.Send(2512, "too early for it"));
  release.set_value();
  ASSERT_TRUE(server.WaitFor(1, 2));
  EXPECT_FALSE(answered);
  {
    const CLinkBinding bound(first);
    EXPECT_FALSE(server.Send(2512, "bound"));
  }
  {
    const CLinkBinding nowhere(nullptr);
    EXPECT_FALSE(server.Send(2512, "nowhere"));
  }
  EXPECT_TRUE(server.Send(2513, "new"));
  EXPECT_EQ(client.Receive(23), MakePacket(2513, "new"));
}

TEST(NetWorkManageEx, LinksOfOneAddressTakeTurnsAndOthersDoNotWait) {
  CRecordingServer server;
  SHold hold(server, 2501);
  const CRawClient blocked(server.Port(), "127.3.0.3");
  ASSERT_TRUE(blocked.Send(MakePacket(2501)));
  ASSERT_TRUE(server.WaitFor(2501));

  const CRawClient same(server.Port(), "127.3.0.3");
  ASSERT_TRUE(same.Send(MakePacket(2502)));
  const CRawClient other(server.Port(), "127.3.0.4");
  ASSERT_TRUE(other.Send(MakePacket(2503)));
  ASSERT_TRUE(server.WaitFor(2503));
  EXPECT_EQ(server.Count(1), 2U);
  hold.Release();
  EXPECT_TRUE(server.WaitFor(2502));
}

TEST(NetWorkManageEx, CapacityCountsLinksThatAreUp) {
  CRecordingServer server(2);
  SHold hold(server, 0);
  const CRawClient one(server.Port(), "127.3.0.5");
  {
    const CRawClient two(server.Port(), "127.3.0.6");
    ASSERT_TRUE(server.WaitFor(1, 2));
    const CRawClient three(server.Port(), "127.3.0.7");
    EXPECT_TRUE(three.WaitClosed());
  }
  ASSERT_TRUE(server.WaitFor(0));  // its handler still runs
  const CRawClient four(server.Port(), "127.3.0.8");
  EXPECT_TRUE(server.WaitFor(1, 3));
  hold.Release();
  server.m_bRefuse = true;
  one.Send("no packet of the protocol");
  EXPECT_TRUE(one.WaitClosed());
  ASSERT_TRUE(server.WaitFor(0, 2));
  const CRawClient five(server.Port(), "127.3.0.9");
  EXPECT_TRUE(five.WaitClosed());  // no parser, no link
  server.Stop();
  EXPECT_EQ(server.Count(1), 3U);
  EXPECT_EQ(server.Count(0), 2U);  // Stop announces nothing
}

TEST(NetWorkManageEx, RequestsWaitUntilAnswersAreRead) {
  constexpr std::size_t kRequests = 100;
  const std::string answer(1 << 20, 'a');  // together more than may be queued
  CRecordingServer server;
  std::atomic<bool> refused = false;
  server.On(2511, [&](const std::string&) { refused = refused || !server.Send(2511, answer); });
  const CRawClient client(server.Port(), "127.3.0.26");
  std::string requests;
  for (std::size_t i = 0; i < kRequests; ++i) requests += MakePacket(2511);
  ASSERT_TRUE(client.Send(requests));
  const auto read = std::chrono::steady_clock::now() + std::chrono::milliseconds(300);
  WaitUntil([&] { return refused || std::chrono::steady_clock::now() > read; });
  ASSERT_FALSE(refused);
  for (std::size_t i = 0; i < kRequests; ++i) {
    ASSERT_EQ(client.Receive(20 + answer.size()).size(), 20 + answer.size());
  }
  const CRawClient other(server.Port(), "127.3.0.27");  // reads nothing
  ASSERT_TRUE(server.WaitFor(1, 2));
  std::size_t taken = 0;
  while (taken < kRequests && server.Send(2511, answer)) ++taken;
  EXPECT_LT(taken, 90U) << "64 MiB and what the sockets hold";
  server.Stop();
}

// Answers leave together, but not later than the request behind them is dealt with.
TEST(NetWorkManageEx, AnswersDoNotWaitForASlowRequest) {
  CRecordingServer server;
  std::promise<void> read;
  server.On(2504, [&](const std::string&) { server.Send(2504, "x"); });
  server.On(2512, [&](const std::string&) {
    read.get_future().wait_for(std::chrono::seconds(5));
    server.Send(2512, "x");
  });
  const CRawClient client(server.Port(), "127.3.0.28");
  const auto since = std::chrono::steady_clock::now();
  ASSERT_TRUE(client.Send(MakePacket(2504) + MakePacket(2504) + MakePacket(2512)));
  EXPECT_EQ(client.Receive(42).size(), 42U);
  EXPECT_LT(std::chrono::steady_clock::now() - since, std::chrono::seconds(4));
  read.set_value();
  EXPECT_EQ(client.Receive(21).size(), 21U);
  server.Stop();
}

TEST(NetWorkManageEx, CallbacksMayStopCloseAndConnect) {
  std::promise<bool> reconnected;
  CRecordingServer server;
  server.On(2502, [&](const std::string&) { server.Stop(); });
  SClient client;
  client.On(2511, [&](const std::string&) {
    client.m_manager.CloseAllConnect();
    reconnected.set_value(client.Connect(server));
  });
  ASSERT_TRUE(client.Connect(server));
  ASSERT_TRUE(server.WaitFor(1));
  ASSERT_TRUE(server.Send(2511));
  EXPECT_TRUE(reconnected.get_future().get());
  // Two callbacks of different addresses stop at once.
  const CRawClient one(server.Port(), "127.3.0.13"), two(server.Port(), "127.3.0.14");
  ASSERT_TRUE(server.WaitFor(1, 4));
  one.Send(MakePacket(2502));
  two.Send(MakePacket(2502));
  EXPECT_TRUE(one.WaitClosed());
  EXPECT_TRUE(two.WaitClosed());
  ASSERT_TRUE(client.WaitFor(0, 2));
}

}  // namespace
