// How the programs are called, what they refuse, and how they end.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "support/Programs.h"

namespace fs = std::filesystem;

namespace {

std::size_t Lines(const std::string& text) {
  return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

}  // namespace

TEST(ProgramUse, KqftTellsWrongUseFromAServerThatIsNotThere) {
  CTempDirectory directory;
  WriteWholeFile(directory / "file", "x");
  const std::vector<std::string> place = {"--server", "127.0.0.1:1", "--log-dir", directory.Path()};
  const auto run = [&](std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), place.begin(), place.end());
    return RunProgram(KQFT_PROGRAM, arguments).m_nStatus;
  };
  for (const std::vector<std::string>& wrong :
       std::vector<std::vector<std::string>>{{},
                                             {"nosuchcommand"},
                                             {"put"},
                                             {"put", directory / "nosuchfile"},
                                             {"put", directory / "file"},
                                             {"put", directory.Path(), "--project", ".."},
                                             {"get", "a/b"},
                                             {"rm", "--yes", ""},
                                             {"rm", "--yes", "."},
                                             {"rm", "--yes", ".."},
                                             {"rm", "--yes", "a\\b"},
                                             {"rm", "P"},
                                             {"--retries", "-1", "ls"},
                                             {"--config", directory / "nosuchfile", "ls"}}) {
    EXPECT_EQ(run(wrong), 2) << (wrong.empty() ? "" : wrong.back());
  }
  EXPECT_EQ(run({"ls"}), 3);
  EXPECT_EQ(run({"--help"}), 0);
  EXPECT_EQ(RunProgram(KQFT_PROGRAM, {"--version"}).m_strOutput.substr(0, 5), "kqft ");
}

TEST(ProgramUse, ConfigurationFileYieldsToTheCommandLine) {
  CServerProgram server;
  CTempDirectory directory;
  WriteWholeFile(directory / "good.conf", "# comment\nserver = " + server.Place() +
                                              "\nlog-dir = " + directory.Path() + "\n");
  WriteWholeFile(directory / "bad.conf", "serverr = x\n");
  EXPECT_EQ(RunProgram(KQFT_PROGRAM, {"--config", directory / "good.conf", "dir"}).m_nStatus, 0);
  EXPECT_EQ(RunProgram(KQFT_PROGRAM,
                       {"--config", directory / "good.conf", "--server", "127.0.0.1:1", "dir"})
                .m_nStatus,
            3);
  EXPECT_EQ(RunProgram(KQFT_PROGRAM, {"--config", directory / "bad.conf", "dir"}).m_nStatus, 2);
}

TEST(ProgramUse, ServerThatCannotServeSaysWhyInOneLine) {
  CServerProgram running;
  CTempDirectory good;
  const std::string port = running.Place().substr(running.Place().find(':') + 1);
  WriteWholeFile(good / "file", "x");
  for (const std::vector<std::string>& bad : std::vector<std::vector<std::string>>{
           {"--dir", good / "nosuch", "--log-dir", good.Path(), "--port", "0"},
           {"--dir", good / "file", "--log-dir", good.Path(), "--port", "0"},
           {"--dir", "/proc", "--log-dir", good.Path(), "--port", "0"},
           {"--dir", good.Path(), "--log-dir", good / "nosuch", "--port", "0"},
           {"--dir", good.Path(), "--log-dir", "/proc", "--port", "0"},
           {"--dir", good.Path(), "--log-dir", good.Path(), "--listen", "127.0.0.1", "--port",
            port}}) {
    const SRun run = RunProgram(KQFT_SERVER_PROGRAM, bad);
    EXPECT_EQ(run.m_nStatus, 1) << run.m_strError;
    EXPECT_EQ(Lines(run.m_strError), 1U) << run.m_strError;
  }
  EXPECT_EQ(RunProgram(KQFT_SERVER_PROGRAM, {"--port", "0"}).m_nStatus, 2);
  EXPECT_EQ(RunProgram(KQFT_SERVER_PROGRAM, {"--dir", good.Path(), "--port", "65536"}).m_nStatus,
            2);
  EXPECT_EQ(RunProgram(KQFT_SERVER_PROGRAM, {"--help"}).m_nStatus, 0);
}

TEST(ProgramUse, ServerEndsSoonHoweverManySessionsHaveStoredData) {
  CServerProgram server;
  CTempDirectory local;
  MakeSparseFile(local / "P/big.dat", std::int64_t{64} << 20);
  std::vector<std::unique_ptr<CWorkstation>> stations;
  std::vector<std::unique_ptr<CProgram>> puts;
  for (int i = 2; i < 5; ++i) {
    stations.push_back(std::make_unique<CWorkstation>(server, "127.0.0." + std::to_string(i)));
    const std::string name = "P" + std::to_string(i);
    puts.push_back(stations.back()->Start({"put", local / "P", "--project", name}));
    EXPECT_TRUE(WaitUntil([&] {
      return fs::exists(server.ProjectPath(name + "/big.dat")) &&
             fs::file_size(server.ProjectPath(name + "/big.dat")) > 0;
    }));
  }
  // Killed uploads leave sessions that would be waited for 5 s each.
  for (const auto& put : puts) put->Signal(kKill);
  for (const auto& put : puts) put->Wait();
  const auto start = std::chrono::steady_clock::now();
  server.Process().Signal(kTerminate);
  EXPECT_EQ(server.Process().Wait(), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
}

TEST(ProgramUse, ServerTellsItsStateToServiceManagerAndOutputStream) {
  const CServiceManager manager;
  CServerProgram server;
  EXPECT_EQ(manager.Next(), "READY=1");
  const CWorkstation station(server, "127.0.0.2");
  EXPECT_EQ(station.Run({"ls"}).m_nStatus, 0);
  EXPECT_TRUE(WaitUntil([&] { return Lines(server.Process().Output()) == 2; }));
  EXPECT_EQ(server.Process().Output().substr(0, 21), "new client:127.0.0.2:");
  EXPECT_NE(server.Process().Output().find("\nclient disconnect:127.0.0.2:"), std::string::npos);
  server.Process().Signal(kInterrupt);
  EXPECT_EQ(manager.Next(), "STOPPING=1");
  EXPECT_EQ(server.Process().Wait(), 0);
}
