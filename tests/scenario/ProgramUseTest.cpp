// How the programs are called, what they refuse, and how they end.

#include <algorithm>
#include <cstring>

#include "protocol/MessageCodes.h"
#include "support/FakeServer.h"
#include "support/Packets.h"
#include "support/Programs.h"
#include "support/Sockets.h"

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
                                 {"rm", "--yes", ""},
                                 {"rm", "P"},
                                 {"--retries", "-1", "ls"},
                                 {"--retry-for", "9x", "ls"},
                                 {"--timeout", "0", "ls"},
                                 {"--bwlimit", "10X", "ls"},
                                 {"--log-keep", "-1", "ls"},
                                 {"--server", "h:65536", "ls"},
                                 {"--server", "h:8x", "ls"}};
  for (const Arguments& wrong : wrongUses) {
    EXPECT_EQ(nobody.Start(wrong)->Wait(), 2) << (wrong.empty() ? "" : wrong.back());
  }
  const std::pair<Arguments, const char*> misspelt[] = {
      {{"lst"}, "'lst' is no command; did you mean 'ls'?\n"},
      {{"--jsno", "ls"}, "'--jsno' is no option; did you mean '--json'?\n"},
      {{"put", "--wath=1", "."}, "'--wath' is no option; did you mean '--watch'?\n"},
      {{"everything"}, "'everything' is no command\n"}};
  for (const auto& [wrong, told] : misspelt) {
    const auto program = nobody.Run(wrong);
    EXPECT_EQ(program->Wait(), 2);
    EXPECT_EQ(program->Error().substr(0, std::strlen(told) + 6), std::string("kqft: ") + told);
  }
  EXPECT_EQ(nobody.Start({"ls", "--retries", "0"})->Wait(), 3);
  EXPECT_EQ(nobody.Start({"--help"})->Wait(), 0);
  EXPECT_EQ(nobody.Run({"--version"})->Output().substr(0, 5), "kqft ");
}

TEST(ProgramUse, ConfigurationFileYieldsToTheCommandLine) {
  CServerProgram server;
  const CWorkstation station(server.Port());
  CTempDirectory directory;
  WriteWholeFile(directory / "bad.conf", "serverr = x\n");
  EXPECT_EQ(station.Start({"dir"})->Wait(), 0);
  const auto noLogs = station.Run({"dir", "--log-dir", "/proc"});
  EXPECT_EQ(noLogs->Error().find("kqft: no log files: cannot write into /proc"), 0U);
  EXPECT_EQ(noLogs->Wait(), 0);
  EXPECT_EQ(station.Start({"--server", "127.0.0.1:1", "dir", "--retries", "0"})->Wait(), 3);
  for (const char* wrong : {"bad.conf", "missing.conf"}) {
    EXPECT_EQ(CProgram(KQFT_PROGRAM, {"--config", directory / wrong, "dir"}).Wait(), 2);
  }
}

TEST(ProgramUse, SizesThatCannotBeAreNotBelieved) {
  CFakeServer fake;
  const CWorkstation station(fake.Port());
  const CTempDirectory local;
  WriteWholeFile(local / "P/run.tm", "run");
  const auto expect = [&](Arguments arguments, const std::string& told) {
    arguments.insert(arguments.end(), {"--retries", "0"});
    const auto program = station.Run(arguments);
    EXPECT_EQ(program->Wait(), 1) << arguments.front();
    EXPECT_NE(program->Error().find(told), std::string::npos) << program->Error();
    EXPECT_EQ(program->Output().find("-1"), std::string::npos) << program->Output();
  };
  std::vector<Channel_Key_Value> records(2);
  for (std::size_t i = 0; i < 2; ++i) {
    records[i].m_strPath = "P" + std::to_string(i);
    records[i].m_strName = "D\\P\\" + std::to_string(i);
    records[i].m_llSize = -1;
  }
  fake.Answer(NET_CTS_GETPRJDIR, "D\\");
  fake.Answer(NET_CTS_GETPRJLIST, PrintRecords(records));
  fake.Answer(NET_CTS_GETPRJFILELIST, PrintRecords(records));
  const Arguments get = {"get", "P", "--no-inventory", "--into", local.Path()};
  fake.Answer(NET_CTS_REQUEST_SERVERFILESIZE, Int64(-1));
  expect({"ls"}, "P1: the server tells a size that cannot be (-1 bytes)");
  expect(get, "P/1: the server tells a size that cannot be (-1 bytes)");
  expect({"put", "--no-inventory", local / "P"},
         "P/run.tm: the server tells a size that cannot be (-1 bytes)");
  fake.Answer(NET_CTS_REQUEST_SERVERFILESIZE, Int64(INT64_MAX));
  expect(get, "P/1: the server tells more bytes in all than there can be");
  int asked = 0;  // the two files, then their sum
  fake.On(NET_CTS_REQUEST_SERVERFILESIZE, [&](const std::string&) {
    fake.Send(NET_CTS_REQUEST_SERVERFILESIZE, Int64(++asked > 2 ? -2 : 1));
  });
  expect(get, "P/1: the server tells a size that cannot be (-2 bytes)");
  fake.Stop();
}

TEST(ProgramUse, ServerThatCannotServeSaysWhyInOneLine) {
  CServerProgram running;
  CTempDirectory good;
  WriteWholeFile(good / "file", "x");
  const auto run = [](const std::string& dir, const std::string& logs, int port) {
    return std::make_unique<CProgram>(
        KQFT_SERVER_PROGRAM, Arguments{"--dir", dir, "--log-dir", logs, "--listen", "127.0.0.1",
                                       "--port", std::to_string(port)});
  };
  for (const auto& program :
       {run(good / "nosuch", good.Path(), 0), run(good / "file", good.Path(), 0),
        run("/proc", good.Path(), 0), run(good.Path(), good.Path(), running.Port()),
        run(running.ProjectPath("."), good.Path(), 0)}) {
    EXPECT_EQ(program->Wait(), 1);
    EXPECT_EQ(Lines(program->Error()), 1) << program->Error();
  }
  CProgram noLogs(KQFT_SERVER_PROGRAM, {"--dir", good.Path(), "--log-dir", good / "nosuch",
                                        "--port", "0", "--listen", "127.0.0.1", "--no-confine"});
  EXPECT_TRUE(WaitUntil([&] { return Lines(noLogs.Error()) == 2; }));
  EXPECT_EQ(noLogs.Error().find("kqft-server: no log files: "), 0U) << noLogs.Error();
  EXPECT_TRUE(noLogs.IsRunning());
  EXPECT_EQ(run(good.Path(), good.Path(), 65536)->Wait(), 2);
  EXPECT_EQ(CProgram(KQFT_SERVER_PROGRAM, {"--port", "0"}).Wait(), 2);
}

TEST(ProgramUse, ServerEndsSoonHoweverManySessionsHaveStoredData) {
  CServerProgram server;
  for (int i = 2; i < 5; ++i) {
    const std::string number = std::to_string(i), path = server.ProjectPath(number);
    const CRawClient client(server.Port(), "127.0.0." + number);
    client.Send(MakePacket(NET_CTS_PREPARETRAN_FILE, '\1' + path) +
                MakePacket(NET_CTS_TRANSFILEDATA, Int64(0) + "x"));
    EXPECT_TRUE(WaitUntil([&] { return FileSize(path) > 0; }));
  }  // each leaves a session that would be waited for 5 s
  const auto start = std::chrono::steady_clock::now();
  server.Process().Signal(SIGTERM);
  EXPECT_EQ(server.Process().Wait(), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

}  // namespace
