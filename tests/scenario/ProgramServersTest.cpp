// Several servers of one storage.

#include <map>
#include <set>

#include "support/Programs.h"
#include "support/TestServer.h"
#include "transfer/Servers.h"

namespace {

class ProgramServers : public testing::Test {
 protected:
  ProgramServers() {
    for (const CServerProgram* server : {&m_first, &m_second, &m_third}) {
      m_strAll +=
          (m_strAll.empty() ? "127.0.0.1:" : ",127.0.0.1:") + std::to_string(server->Port());
    }
  }

  // The one that a project meets first.
  CServerProgram& Met(const std::string& project) {
    CServers servers(m_strAll, 1);
    servers.Choose(project);
    for (CServerProgram* server : {&m_first, &m_second}) {
      if (server->Port() == servers.Port()) return *server;
    }
    return m_third;
  }

  CServerProgram m_first{Arguments{"--no-confine", "--shared"}};
  CServerProgram m_second{m_first};
  CServerProgram m_third{m_first};
  std::string m_strAll;
  const CWorkstation m_station{m_first.Port()};
  const CWorkstation m_other{m_second.Port(), "127.0.0.3"};
  CTempDirectory m_local;
};

TEST(Servers, AProjectMeetsOneOfThemInWhateverOrderTheyAreNamed) {
  std::map<std::string, int> met;
  for (int i = 0; i < 300; ++i) {
    const std::string project = "Run-" + std::to_string(i);
    CServers servers("a,b:7000,c", 9999);
    CServers others("c:9999,a,a,b:7000", 9999);
    CServers fewer("b:7000,c", 9999);
    for (CServers* each : {&servers, &others, &fewer}) each->Choose(project);
    EXPECT_EQ(servers.Count(), 3U);
    EXPECT_EQ(servers.Text(), others.Text());
    EXPECT_TRUE(servers.Text() == "a:9999" || servers.Text() == fewer.Text());
    ++met[servers.Text()];
  }
  for (const char* const each : {"a:9999", "b:7000", "c:9999"}) EXPECT_GT(met[each], 60) << each;
}

TEST(Servers, ANameStandsForEachOfItsAddresses) {
  const auto lookUp = [](const std::string& host) -> std::vector<std::string> {
    if (host == "data") return {"10.0.0.1", "10.0.0.2"};
    return host == "one" ? std::vector<std::string>{"10.0.0.9"} : std::vector<std::string>{};
  };
  CServers servers("data,one:7000,10.0.0.2,unknown", 9999);
  servers.Choose("P");
  for (int twice = 0; twice < 2; ++twice) servers.LookUp(lookUp);
  std::set<std::string> met;
  for (std::size_t i = 0; i < servers.Count(); ++i, servers.Next()) met.insert(servers.Text());
  EXPECT_EQ(met,
            (std::set<std::string>{"10.0.0.1:9999", "10.0.0.2:9999", "one:7000", "unknown:9999"}));
}

TEST_F(ProgramServers, APutGoesOnWithTheNextWhenItsServerIsKilled) {
  WriteWholeFile(m_local / "P/big.tm", PatternBytes(24 * kMiB));
  const auto put =
      m_station.Start({"--server", m_strAll, "--bwlimit", "12M", "put", m_local / "P"});
  ASSERT_TRUE(WaitUntil([&] { return FileSize(m_first.ProjectPath("P/big.tm")) > kMiB; }));
  Met("P").Process().Signal(SIGKILL);
  EXPECT_EQ(put->Wait(), 0) << put->Error();
  EXPECT_TRUE(Holds(put->Error(),
                    "server 127.0.0.1:" + std::to_string(Met("P").Port()) + " does not answer ("))
      << put->Error();
  EXPECT_TRUE(Holds(put->Error(), "; going on with 127.0.0.1:")) << put->Error();
  EXPECT_TRUE(ReadTree(m_first.ProjectPath("P")) == ReadTree(m_local / "P"));
  const auto get = m_other.Run({"--server", m_strAll, "get", "P", "--into", m_local / "back"});
  EXPECT_EQ(get->Wait(), 0) << get->Error();
  EXPECT_TRUE(ReadTree(m_local / "back/P") == ReadTree(m_local / "P"));
}

TEST_F(ProgramServers, AFileHasOneReceiverUntilItsServerDies) {
  WriteWholeFile(m_local / "P/big.tm", PatternBytes(24 * kMiB));
  const auto put = m_station.Start({"--bwlimit", "2M", "--retries", "0", "put", m_local / "P"});
  ASSERT_TRUE(WaitUntil([&] { return FileSize(m_first.ProjectPath("P/big.tm")) > kMiB; }));
  const Arguments takeOver = {"put", "--take-over", m_local / "P"};
  const auto refused = m_other.Run(takeOver);
  EXPECT_EQ(refused->Wait(), 1);
  EXPECT_TRUE(Holds(refused->Error(), "another workstation may be writing it")) << refused->Error();
  m_first.Process().Signal(SIGKILL);
  EXPECT_EQ(put->Wait(), 1);
  const auto later = m_other.Run(takeOver);
  EXPECT_EQ(later->Wait(), 0) << later->Error();
  EXPECT_TRUE(ReadTree(m_first.ProjectPath("P")) == ReadTree(m_local / "P"));
}

TEST_F(ProgramServers, ServersOfOtherDirectoriesStopIt) {
  const CServerProgram foreign;
  WriteWholeFile(m_local / "P/big.tm", PatternBytes(8 * kMiB));
  const std::string both =
      m_strAll.substr(0, m_strAll.find(',')) + ",127.0.0.1:" + std::to_string(foreign.Port());
  CServers servers(both, 1);
  int project = 0;  // one that meets the first
  do {
    servers.Choose("P" + std::to_string(++project));
  } while (servers.Port() != m_first.Port());
  const auto put = m_station.Start({"--server", both, "--bwlimit", "2M", "put", "--project",
                                    "P" + std::to_string(project), m_local / "P"});
  ASSERT_TRUE(WaitUntil([&] {
    return FileSize(m_first.ProjectPath("P" + std::to_string(project) + "/big.tm")) > kMiB;
  }));
  m_first.Process().Signal(SIGKILL);
  EXPECT_EQ(put->Wait(), 1);
  EXPECT_TRUE(Holds(put->Error(), ": they do not serve one storage")) << put->Error();
}

}  // namespace
