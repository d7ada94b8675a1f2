// What kqft says of a server that it cannot reach or that does not answer, and
// how it ends meanwhile when its terminal goes.

#include <thread>

#include "net/Sockets.h"
#include "support/Programs.h"
#include "support/Sockets.h"

namespace {

// Whoever connects is told something, which may be nothing at all.
class CPeer {
 public:
  explicit CPeer(const std::string& greeting)
      : m_thread([this, greeting] {
          for (std::unique_ptr<IStreamSocket> link;
               m_pListener->Accept(link) == EAcceptResult::kAccepted;) {
            const SSlice slice{greeting.data(), greeting.size()};
            std::size_t sent = 0;
            link->Send(&slice, greeting.empty() ? 0 : 1, sent);
            m_links.push_back(std::move(link));
          }
        }) {}
  ~CPeer() {
    m_pListener->Stop();
    m_thread.join();
  }
  int Port() const { return m_pListener->Port(); }

 private:
  const std::unique_ptr<IListenSocket> m_pListener = NativeSockets().Listen("127.0.0.1", 0);
  std::vector<std::unique_ptr<IStreamSocket>> m_links;  // the thread's
  std::thread m_thread;
};

TEST(ProgramConnect, EveryWayNotToGetAConnectionHasItsWords) {
  CServerProgram server;
  std::vector<std::unique_ptr<CRawClient>> others;
  for (int i = 1; i <= 100; ++i) {
    others.push_back(std::make_unique<CRawClient>(server.Port(), "127.0.1." + std::to_string(i)));
    ASSERT_TRUE(WaitUntil([&] {
      return server.Process().Output().find("new client:127.0.1." + std::to_string(i) + ":") !=
             std::string::npos;
    }));
  }
  const CPeer silent(""), banner("SSH-2.0-x\r\n"), page("HTTP/1.1 400 Bad Request\r\n\r\n");
  const auto at = [](int port) { return "127.0.0.1:" + std::to_string(port); };
  const struct {
    std::string m_strServer;
    Arguments m_more;
    std::string m_strTold;
  } cases[] = {
      {at(1), {}, "connection refused: "},
      {"nosuchhost.invalid", {}, "the name nosuchhost.invalid "},
      {"255.255.255.255", {}, "no route to it"},
      {"[::1]:9999", {"--retries", "3"}, "has only IPv6 addresses"},
      {at(1), {"--bind", "192.0.2.1"}, "192.0.2.1 is no address of this machine"},
      {at(server.Port()), {}, "the server ended the link at once: it may be full (100 links)"},
      {at(banner.Port()), {"--retries", "3"}, "it does not speak this protocol: "},
      {at(page.Port()), {"--retries", "3"}, "it does not speak this protocol: "},
      {at(silent.Port()), {"--timeout", "1", "--retries", "3"}, "has said nothing for 1 s\n"}};
  const CWorkstation station(1);
  for (const auto& each : cases) {
    Arguments arguments = {"--server", each.m_strServer, "ls", "--retries", "0"};
    if (each.m_more.size() > 1) arguments.resize(3);
    arguments.insert(arguments.end(), each.m_more.begin(), each.m_more.end());
    const auto program = station.Run(arguments);
    EXPECT_EQ(program->Wait(), 3) << each.m_strTold;
    EXPECT_NE(program->Error().find("kqft: cannot connect to " + each.m_strServer),
              std::string::npos)
        << program->Error();
    EXPECT_NE(program->Error().find(each.m_strTold), std::string::npos) << program->Error();
    EXPECT_EQ(program->Error().find("trying again"), std::string::npos) << program->Error();
  }
}

TEST(ProgramConnect, ATransferIsGivenUpOnceTheServerIsSilentForTooLong) {
  CServerProgram server;
  const CWorkstation station(server.Port());
  const CTempDirectory local;
  MakeSparseFile(local / "P/big.tm", std::int64_t{320} << 20);
  const auto put = station.Start({"put", local / "P", "--timeout", "2", "--retries", "2"});
  EXPECT_TRUE(WaitUntil([&] { return FileSize(server.ProjectPath("P/big.tm")) > 1 << 20; }));
  server.Process().Signal(SIGSTOP);
  EXPECT_TRUE(WaitUntil([&] {
    return put->Error().find("the server has said nothing for 2 s (--timeout)") !=
           std::string::npos;
  }));
  server.Process().Signal(SIGCONT);
  EXPECT_EQ(put->Wait(), 0) << put->Error();
  EXPECT_EQ(FileSize(server.ProjectPath("P/big.tm")), std::int64_t{320} << 20);
}

TEST(ProgramConnect, ARateLimitHoldsBothWays) {
  CServerProgram server;
  const CWorkstation station(server.Port());
  const CTempDirectory local;
  WriteWholeFile(local / "P/a.tm", PatternBytes(300 << 10));
  for (const Arguments& arguments :
       {Arguments{"put", local / "P"}, Arguments{"get", "P", "--into", local / "in"}}) {
    Arguments limited = {"--bwlimit", "100k", "--retries", "0"};
    limited.insert(limited.end(), arguments.begin(), arguments.end());
    const auto start = std::chrono::steady_clock::now();
    const auto program = station.Run(limited);
    EXPECT_EQ(program->Wait(), 0) << program->Error();
    EXPECT_GT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(2500));
  }
  EXPECT_EQ(ReadTree(local / "in/P"), ReadTree(local / "P"));
}

TEST(ProgramConnect, ATerminalThatGoesEndsAWaitingPutWithCare) {
  CServerProgram server;
  const CWorkstation station(server.Port());
  const CTempDirectory local;
  MakeSparseFile(local / "P/big.tm", std::int64_t{320} << 20);
  const auto put = station.Start({"put", "--json", local / "P"});
  EXPECT_TRUE(WaitUntil([&] { return FileSize(server.ProjectPath("P/big.tm")) > 1 << 20; }));
  server.Process().Signal(SIGSTOP);
  EXPECT_TRUE(WaitUntil([&] {
    return put->Output().find(
               "{\"type\":\"waiting\",\"message\":\"waiting for the server\","
               "\"command\":\"put\",\"seconds\":5}") != std::string::npos;
  })) << put->Output();
  put->Signal(SIGUSR1);
  EXPECT_TRUE(WaitUntil([&] {
    return put->Error().find("  waiting for the server (") != std::string::npos;
  })) << put->Error();
  put->Signal(SIGHUP);
  EXPECT_TRUE(put->IsRunning());
  put->Signal(SIGHUP);  // of the login that ends
  server.Process().Signal(SIGCONT);
  EXPECT_EQ(put->Wait(), 129);
  EXPECT_NE(put->Error().find("interrupted; what has arrived is kept"), std::string::npos);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(station.Run({"ls"})->Wait(), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4));
}

}  // namespace
