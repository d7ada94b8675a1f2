// How the programs are called, what they refuse, and how they end.

#include <algorithm>
#include <list>

#include "support/Programs.h"

namespace {

std::int64_t Lines(const std::string& text) {
  return std::count(text.begin(), text.end(), '\n');
}

TEST(ProgramUse, KqftTellsWrongUseFromAServerThatIsNotThere) {
  CTempDirectory directory;
  WriteWholeFile(directory / "file", "x");
  const CWorkstation nobody(1);
  const Arguments wrongUses[] = {{},
                                 {"nosuchcommand"},
                                 {"put"},
                                 {"put", directory / "nosuchfile"},
                                 {"put", directory / "file"},
                                 {"put", directory.Path(), "--project", ".."},
                                 {"get", "a/b"},
                                 {"rm", "--yes", ""},
                                 {"rm", "--yes", "a\\b"},
                                 {"rm", "P"},
                                 {"--retries", "-1", "ls"},
                                 {"--config", directory / "nosuchfile", "ls"}};
  for (const Arguments& wrong : wrongUses) {
    EXPECT_EQ(nobody.Start(wrong)->Wait(), 2) << (wrong.empty() ? "" : wrong.back());
  }
  EXPECT_EQ(nobody.Start({"ls"})->Wait(), 3);
  EXPECT_EQ(nobody.Start({"--help"})->Wait(), 0);
  EXPECT_EQ(RunProgram(KQFT_PROGRAM, {"--version"})->Output().substr(0, 5), "kqft ");
}

TEST(ProgramUse, ConfigurationFileYieldsToTheCommandLine) {
  CServerProgram server;
  CTempDirectory directory;
  const std::string good = directory / "good.conf", bad = directory / "bad.conf";
  WriteWholeFile(good, "# comment\nserver = 127.0.0.1:" + std::to_string(server.Port()) +
                           "\nlog-dir = " + directory.Path() + "\n");
  WriteWholeFile(bad, "serverr = x\n");
  const auto run = [](const Arguments& arguments) {
    return RunProgram(KQFT_PROGRAM, arguments)->Wait();
  };
  EXPECT_EQ(run({"--config", good, "dir"}), 0);
  EXPECT_EQ(run({"--config", good, "--server", "127.0.0.1:1", "dir"}), 3);
  EXPECT_EQ(run({"--config", bad, "dir"}), 2);
}

TEST(ProgramUse, ServerThatCannotServeSaysWhyInOneLine) {
  CServerProgram running;
  CTempDirectory good;
  WriteWholeFile(good / "file", "x");
  const auto run = [](const std::string& dir, const std::string& logs, int port) {
    return RunProgram(KQFT_SERVER_PROGRAM, {"--dir", dir, "--log-dir", logs, "--listen",
                                            "127.0.0.1", "--port", std::to_string(port)});
  };
  for (const auto& program :
       {run(good / "nosuch", good.Path(), 0), run(good / "file", good.Path(), 0),
        run("/proc", good.Path(), 0), run(good.Path(), good / "nosuch", 0),
        run(good.Path(), "/proc", 0), run(good.Path(), good.Path(), running.Port())}) {
    EXPECT_EQ(program->Wait(), 1);
    EXPECT_EQ(Lines(program->Error()), 1) << program->Error();
  }
  EXPECT_EQ(run(good.Path(), good.Path(), 65536)->Wait(), 2);
  EXPECT_EQ(RunProgram(KQFT_SERVER_PROGRAM, {"--port", "0"})->Wait(), 2);
  EXPECT_EQ(RunProgram(KQFT_SERVER_PROGRAM, {"--help"})->Wait(), 0);
}

TEST(ProgramUse, ServerEndsSoonHoweverManySessionsHaveStoredData) {
  CServerProgram server;
  CTempDirectory local;
  MakeSparseFile(local / "P/big.dat", std::int64_t{64} << 20);
  std::list<CWorkstation> stations;
  std::vector<std::unique_ptr<CProgram>> puts;
  for (int i = 2; i < 5; ++i) {
    const std::string name = "P" + std::to_string(i);
    puts.push_back(stations.emplace_back(server.Port(), "127.0.0." + std::to_string(i))
                       .Start({"put", local / "P", "--project", name}));
    EXPECT_TRUE(WaitUntil([&] { return FileSize(server.ProjectPath(name + "/big.dat")) > 0; }));
  }
  puts.clear();  // killed, they leave sessions that would be waited for 5 s each
  const auto start = std::chrono::steady_clock::now();
  server.Process().Signal(SIGTERM);
  EXPECT_EQ(server.Process().Wait(), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

TEST(ProgramUse, ServerTellsItsStateToServiceManagerAndOutputStream) {
  const CServiceManager manager;
  CServerProgram server;
  EXPECT_EQ(manager.Next(), "READY=1");
  EXPECT_EQ(CWorkstation(server.Port()).Start({"ls"})->Wait(), 0);
  EXPECT_TRUE(WaitUntil([&] { return Lines(server.Process().Output()) == 2; }));
  EXPECT_EQ(server.Process().Output().substr(0, 21), "new client:127.0.0.2:");
  EXPECT_NE(server.Process().Output().find("\nclient disconnect:127.0.0.2:"), std::string::npos);
  server.Process().Signal(SIGINT);
  EXPECT_EQ(manager.Next(), "STOPPING=1");
  EXPECT_EQ(server.Process().Wait(), 0);
}

}  // namespace
