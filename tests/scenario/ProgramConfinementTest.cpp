// A kqft-server that keeps to its own: what it still does, who may connect.

#include <cstdlib>
#include <filesystem>

#include "platform/Confinement.h"
#include "protocol/MessageCodes.h"
#include "support/HostFiles.h"
#include "support/Packets.h"
#include "support/Programs.h"
#include "support/Sockets.h"

namespace fs = std::filesystem;

namespace {

TEST(ProgramConfinement, ConfinedServerDoesAllItIsThereFor) {
  if (std::getenv("KQFT_NO_LANDLOCK") != nullptr) return;  // nothing starts then
  const CTempDirectory audit;
  CServerProgram server(Arguments{"--no-delete", "--access-log", audit / "log", "--status-dir",
                                  audit / "status", "--status-every", "1"});
  EXPECT_NE(server.Process().Error().find(std::string(" (") + ConfinementWord() + ")\n"),
            std::string::npos);
  const CWorkstation station(server.Port());
  CTempDirectory local;
  WriteWholeFile(local / "P/deep/Run.tm", PatternBytes(200000));
  WriteWholeFile(server.ProjectPath("P/deep/Run.li"),
                 "[Lost_Pos]\nnRecordCount=1\nlost_info_0=0,5\n");
  for (int round = 0; round < 2; ++round) {  // the second one overwrites
    WriteWholeFile(local / "P/P.kqsln", std::to_string(round));
    EXPECT_EQ(station.Start({"put", local / "P"})->Wait(), 0);
  }
  EXPECT_NE(ReadWholeFile(server.ProjectPath("P/deep/Run.li")).find("=5,0\n"), std::string::npos);
  const auto rm = station.Run({"rm", "--yes", "P"});
  EXPECT_EQ(rm->Wait(), 1);
  EXPECT_NE(rm->Error().find("refused: the server deletes no projects"), std::string::npos);
  fs::rename(audit / "log", audit / "old");
  server.Process().Signal(SIGHUP);
  EXPECT_TRUE(WaitUntil([&] { return fs::exists(audit / "log"); }));
  EXPECT_NE(ReadWholeFile(audit / "old").find("\"what\":\"delete\",\"why\":\"forbidden\""),
            std::string::npos);
  EXPECT_EQ(station.Start({"get", "P", "--into", local / "back"})->Wait(), 0);
  EXPECT_EQ(ReadWholeFile(local / "back/P/P.kqsln"), "1");
  EXPECT_TRUE(ReadWholeFile(local / "back/P/deep/Run.tm") == PatternBytes(200000));
  EXPECT_TRUE(WaitUntil([&] {
    return Holds(ReadWholeFile(audit / "status/kqft.prom"),
                 "kqft_files_total{port=\"" + std::to_string(server.Port()) +
                     "\",direction=\"down\",code=\"RESULT_OK\"}");
  }));
  server.Process().Signal(SIGTERM);
  EXPECT_EQ(server.Process().Wait(), 0) << server.Process().Error();
  const std::string status = ReadWholeFile(audit / "status/status.json");
  for (const char* told :
       {"\"state\":\"ended\"", "{\"event\":\"upload\",\"result\":\"done\",\"code\":1,",
        "{\"what\":\"delete\",\"why\":\"forbidden\",\"count\":1,\"today\":1}"}) {
    EXPECT_TRUE(Holds(status, told)) << status;
  }
  const std::string log = ReadWholeFile(audit / "log");
  EXPECT_NE(log.find("\"project\":\"P\",\"name\":\"deep/Run.tm\",\"bytes\":200000,"),
            std::string::npos);
  EXPECT_EQ(log.back(), '\n');
}

TEST(ProgramConfinement, OnlyAllowedPeersAreServed) {
  CServerProgram server(
      {"--no-confine", "--allow", "127.0.0.2", "--allow", "127.8.0.0/16", "--suffix", ".mark"});
  WriteWholeFile(server.ProjectPath("Marked/x.mark"), "");
  for (const char* stranger : {"127.0.0.3", "127.9.0.0", "127.7.255.255"}) {
    EXPECT_TRUE(CRawClient(server.Port(), stranger).WaitClosed());
  }
  for (const char* friendly : {"127.0.0.2", "127.8.255.1"}) {
    EXPECT_EQ(Generic(Ask(CRawClient(server.Port(), friendly), NET_CTS_GETPRJDIR, "")),
              server.ProjectPath(""));
  }
  EXPECT_NE(Ask(CRawClient(server.Port(), "127.0.0.2"), NET_CTS_GETPRJLIST, "").find("Marked"),
            std::string::npos);
  EXPECT_EQ(server.Process().Output().find("127.0.0.3"), std::string::npos);
  CTempDirectory directory;
  WriteWholeFile(directory / "conf", "allow = 10.0.0.0/8\nport = 0\nallow = 10.0.0.1/8\n");
  for (const Arguments& wrong : {Arguments{"--allow", "10.0.0.1/8"}, Arguments{"--allow", ""},
                                 Arguments{"--config", directory / "conf"}}) {
    Arguments arguments = {"--dir", directory.Path()};
    arguments.insert(arguments.end(), wrong.begin(), wrong.end());
    CProgram program(KQFT_SERVER_PROGRAM, arguments);
    EXPECT_EQ(program.Wait(), 2);
    EXPECT_NE(program.Error().find("--allow"), std::string::npos) << program.Error();
  }
}

}  // namespace
