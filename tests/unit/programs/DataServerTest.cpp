// What kqft-server adds to the library's server: limits, and who did what.

#include "programs/kqft-server/DataServer.h"

#include "protocol/MessageCodes.h"
#include "protocol/ResultCodes.h"
#include "support/HostFiles.h"
#include "support/Packets.h"
#include "support/Sockets.h"
#include "support/TestSystem.h"

namespace {

// Far above what any file system keeps for its administrator.
constexpr std::int64_t kPlenty = std::int64_t{1} << 50;

class DataServer : public testing::Test {
 protected:
  void Start(const SLinkLimits& limits, std::int64_t minFree) {
    SServerOptions options;
    options.m_strDirectory = m_dir / "projects";
    options.m_strListenAddress = "127.0.0.1";
    options.m_limits = limits;
    options.m_llMinFree = minFree;
    WriteWholeFile(m_dir / "projects/P/old", "old");
    m_access = std::make_shared<CAccessLog>(m_dir / "access", m_dir / "projects/");
    ASSERT_TRUE(m_access->Lines().Open() && m_access->Lines().Start());
    m_server = std::make_unique<CDataServer>(options, m_access, m_traffic);
    m_server->SetLog(m_dir / "log_", true);
    ASSERT_TRUE(m_server->Init(0));
  }

  // How often the access log holds this.
  int Logged(const std::string& text) {
    const std::string log = ReadWholeFile(m_dir / "access");
    int count = 0;
    for (auto at = log.find(text); at != std::string::npos; at = log.find(text, at + 1)) ++count;
    return count;
  }

  std::string Prepare(const CRawClient& client, const std::string& name) {
    client.Send(MakePacket(NET_CTS_PREPARETRAN_FILE, '\1' + (m_dir / name)));
    return client.Receive(32).substr(20, 4);
  }

  CScopedSystem m_system{CFaultPlan().FreeSpace(kPlenty)};
  CTempDirectory m_dir;
  const std::shared_ptr<CTraffic> m_traffic = std::make_shared<CTraffic>();
  std::shared_ptr<CAccessLog> m_access;
  std::unique_ptr<CDataServer> m_server;
};

TEST_F(DataServer, UploadsLeaveTheRoomThatIsToStayFree) {
  Start({}, kPlenty / 2);
  const CRawClient client(m_server->ListenPort(), "127.0.0.2");
  EXPECT_EQ(Prepare(client, "projects/P/new"), Int32(RESULT_OK));
  client.Send(MakePacket(NET_CTS_TRANSFILEDATA, Int64(0) + std::string(1 << 20, 'x')));
  EXPECT_TRUE(WaitUntil([&] { return FileSize(m_dir / "projects/P/new") == 1 << 20; }));
  EXPECT_EQ(m_server->Status().substr(0, 19), "1 link, 1 transfer,");
  m_system.Follow(CFaultPlan().FreeSpace(kPlenty / 2 - 1));
  client.Send(MakePacket(NET_CTS_TRANSFILEDATA, Int64(1 << 20) + "x") +
              MakePacket(NET_CTS_TRANSFILEDATA_END));
  EXPECT_EQ(client.Receive(44).substr(20, 4), Int32(ERROR_CODE_SERVER_WRITE));
  for (const char* name : {"projects/P/old", "projects/P/none"}) {
    EXPECT_EQ(Prepare(client, name), Int32(CREATE_FILE_ERROR));
  }
  EXPECT_EQ(ReadWholeFile(m_dir / "projects/P/old"), "old");
  EXPECT_EQ(FileSize(m_dir / "projects/P/none"), -1);
  EXPECT_TRUE(WaitUntil([&] { return Logged("\"why\":\"free_space\"") == 3; }));
  EXPECT_EQ(Logged("\"project\":\"P\",\"name\":\"new\",\"bytes\":1048576,"), 1);
  EXPECT_EQ(Logged("\"result\":\"failed\",\"code\":-10,"), 1);
  EXPECT_EQ(m_server->Status().substr(0, 20), "1 link, 0 transfers,");
}

TEST_F(DataServer, LinksBeyondTheLimitsAreClosedAtOnceAndLogged) {
  Start({2, 4, 60000}, 0);
  const auto connect = [&](const std::string& address) {
    return std::make_unique<CRawClient>(m_server->ListenPort(), address);
  };
  const auto first = connect("127.0.0.2"), second = connect("127.0.0.2");
  EXPECT_TRUE(connect("127.0.0.2")->WaitClosed());
  EXPECT_TRUE(WaitUntil([&] { return Logged("links_of_address") == 1; }));
  const auto third = connect("127.0.0.3"), fourth = connect("127.0.0.4");
  EXPECT_TRUE(connect("127.0.0.5")->WaitClosed());
  EXPECT_TRUE(WaitUntil([&] { return Logged("\"what\":\"connect\",\"why\":\"new_links\"") == 1; }));
  m_system.AdvanceClock(15);  // one more may come
  const auto fifth = connect("127.0.0.5");
  EXPECT_TRUE(connect("127.0.0.6")->WaitClosed());
  EXPECT_TRUE(WaitUntil([&] { return Logged("\"event\":\"connect\"") == 5; }));
  EXPECT_EQ(Logged("\"address\":\"127.0.0.6:"), 1);
  const bool odd = !NameOr("\xff\n\"", "").empty();
  EXPECT_EQ(Prepare(*fifth, odd ? "elsewhere \xff\n\"" : "elsewhere"), Int32(RESULT_OK));
  m_server->Stop();
  m_access->CutOff(*m_traffic);  // nothing that was not told already
  m_access->Lines().Close(60000);
  EXPECT_EQ(Logged("\"event\":\"disconnect\""), 5);
  EXPECT_EQ(Logged("\"result\":\"cut_off\",\"code\":-9,"), 1);
  const char* const name =
      odd ? "elsewhere \xEF\xBF\xBD\\u000A\\\"\",\"name_hex\":\"" : "elsewhere\"";
  EXPECT_EQ(Logged(name), 1);
}

}  // namespace
