// kqft and kqft-server as processes: whole transfers, their ends, and what a
// later run makes of an interrupted one.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "support/Programs.h"

namespace fs = std::filesystem;

namespace {

constexpr std::int64_t kMiB = 1 << 20;
constexpr std::int64_t kBigFile = 96 * kMiB;

// A session that holds the server up does so for 5 s at least.
constexpr std::chrono::milliseconds kNoHoldUp(2500);

bool Holds(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

std::int64_t FileSize(const std::string& path) {
  std::error_code error;
  const std::uintmax_t size = fs::file_size(path, error);
  return error ? -1 : static_cast<std::int64_t>(size);
}

// Names with everything that a file system of this machine allows and the
// protocol can carry.
void MakeOddTree(const CTempDirectory& directory) {
  WriteWholeFile(directory / "P/P.kqsln", "project\n");
  WriteWholeFile(directory / "P/empty", "");
  WriteWholeFile(directory / "P/with space/\xc3\xbc.txt", "utf-8");
  WriteWholeFile(directory / "P/\xff\x80.bin", "no utf-8");
  WriteWholeFile(directory / "P/-n 'quoted\" & <x>;*?$", PatternBytes(200000, 3));
  WriteWholeFile(directory / "P/Model/Run.TM", PatternBytes(3 * kMiB, 1));
  WriteWholeFile(directory / "P/.hidden", "x");
}

// Starts a transfer of a big file and halts the server in the middle of it.
std::unique_ptr<CProgram> StartAndHaltMidway(CServerProgram& server, const CWorkstation& station,
                                             const std::vector<std::string>& arguments,
                                             const std::string& growing) {
  auto program = station.Start(arguments);
  EXPECT_TRUE(WaitUntil([&] { return FileSize(growing) > kMiB; }));
  server.Process().Signal(kHalt);
  EXPECT_TRUE(program->IsRunning()) << program->Error();
  return program;
}

}  // namespace

TEST(ProgramTransfer, TreeGoesUpAndComesDownByteForByte) {
  CServerProgram server;
  const CWorkstation station(server, "127.0.0.2");
  CTempDirectory local;
  CTempDirectory fetched;
  MakeOddTree(local);

  const SRun put = station.Run({"put", local / "P"});
  EXPECT_EQ(put.m_nStatus, 0) << put.m_strError;
  EXPECT_EQ(TreeOf(server.ProjectPath("P")), TreeOf(local / "P"));
  EXPECT_TRUE(Holds(put.m_strOutput, "sent 7 files, 3.2 MiB (3,345,")) << put.m_strOutput;

  EXPECT_TRUE(Holds(station.Run({"ls"}).m_strOutput, "\nP     3.2 MiB  2"));
  EXPECT_TRUE(Holds(station.Run({"files", "P"}).m_strOutput, "\nwith space/\xc3\xbc.txt\n"));
  EXPECT_EQ(station.Run({"dir"}).m_strOutput, server.ProjectPath("") + "\n");

  const SRun get = station.Run({"get", "P", "--into", fetched.Path()});
  EXPECT_EQ(get.m_nStatus, 0) << get.m_strError;
  EXPECT_EQ(TreeOf(fetched / "P"), TreeOf(local / "P"));
  const SRun again = station.Run({"--json", "get", "P", "--into", fetched.Path()});
  EXPECT_TRUE(Holds(again.m_strOutput, "\"files_done\":7,")) << again.m_strOutput;
  EXPECT_TRUE(Holds(again.m_strOutput, "\"bytes_moved\":0,")) << again.m_strOutput;

  EXPECT_EQ(station.Run({"rm", "P"}).m_nStatus, 2);
  EXPECT_TRUE(fs::exists(server.ProjectPath("P")));
  EXPECT_EQ(station.Run({"rm", "--yes", "P"}).m_nStatus, 0);
  EXPECT_FALSE(fs::exists(server.ProjectPath("P")));
}

TEST(ProgramTransfer, PutThatEndedWellLeavesTheServerFree) {
  CServerProgram server;
  const CWorkstation station(server, "127.0.0.2");
  const CWorkstation other(server, "127.0.0.3");
  CTempDirectory local;
  WriteWholeFile(local / "P/a.txt", PatternBytes(kMiB));

  for (int i = 0; i < 2; ++i) {
    const SRun put = station.Run({"put", local / "P"});
    EXPECT_EQ(put.m_nStatus, 0) << put.m_strError;
    EXPECT_LT(put.m_took, kNoHoldUp);
    EXPECT_LT(other.Run({"ls"}).m_took, kNoHoldUp);
  }
}

TEST(ProgramTransfer, EveryFileThatFailsIsNamedAndTheOthersArrive) {
  CServerProgram server;
  const CWorkstation station(server, "127.0.0.2");
  CTempDirectory local;
  WriteWholeFile(local / "P/a.txt", "a");
  std::ofstream(local / "P/back\\slash") << "b";
  WriteWholeFile(local / "P/taken", "c");
  WriteWholeFile(local / "P/z.txt", "z");
  fs::create_directories(server.ProjectPath("P/taken"));  // no file can be made there
  fs::create_symlink(local / "nowhere", local / "P/broken");

  const SRun put = station.Run({"put", local / "P", "--json", "--retries", "0"});
  EXPECT_EQ(put.m_nStatus, 1);
  EXPECT_EQ(ReadWholeFile(server.ProjectPath("P/a.txt")), "a");
  EXPECT_EQ(ReadWholeFile(server.ProjectPath("P/z.txt")), "z");
  EXPECT_TRUE(Holds(put.m_strError, "P/taken: the server cannot create the file (-8 "));
  EXPECT_TRUE(Holds(put.m_strError, "P/back/slash: ")) << put.m_strError;
  EXPECT_TRUE(Holds(put.m_strError, "skipped ")) << put.m_strError;
  EXPECT_TRUE(Holds(put.m_strOutput, "\"code\":-8,\"code_name\":\"CREATE_FILE_ERROR\""));
  EXPECT_TRUE(Holds(put.m_strOutput, "\"exit_status\":1,"));

  const SRun get = station.Run({"get", "P", "a.txt", "nosuch", "a.txt", "--into", local / "in"});
  EXPECT_EQ(get.m_nStatus, 1);
  EXPECT_EQ(ReadWholeFile(local / "in/P/a.txt"), "a");
  EXPECT_TRUE(Holds(get.m_strError, "P/nosuch: the server cannot open the file (-7 "));
  EXPECT_FALSE(fs::exists(local / "in/P/nosuch"));
}

TEST(ProgramTransfer, InterruptedPutEndsBy130AndTheNextOneGoesOn) {
  CServerProgram server;
  const CWorkstation station(server, "127.0.0.2");
  CTempDirectory local;
  MakeSparseFile(local / "P/big.tm", kBigFile);

  const auto put =
      StartAndHaltMidway(server, station, {"put", local / "P"}, server.ProjectPath("P/big.tm"));
  put->Signal(kInterrupt);
  server.Process().Signal(kContinue);
  EXPECT_EQ(put->Wait(), 130);
  EXPECT_TRUE(Holds(put->Error(), "interrupted")) << put->Error();
  const std::int64_t held = FileSize(server.ProjectPath("P/big.tm"));
  EXPECT_GT(held, kMiB);
  EXPECT_LT(held, kBigFile);

  const SRun again = station.Run({"--json", "put", local / "P"});
  EXPECT_EQ(again.m_nStatus, 0) << again.m_strError;
  EXPECT_LT(again.m_took, kNoHoldUp) << again.m_strError;
  EXPECT_TRUE(Holds(again.m_strOutput, "\"bytes_moved\":" + std::to_string(kBigFile - held) + ","))
      << again.m_strOutput;
  EXPECT_EQ(FileSize(server.ProjectPath("P/big.tm")), kBigFile);
}

TEST(ProgramTransfer, PutOutlivesAServerThatIsKilledAndComesBack) {
  CServerProgram server;
  const CWorkstation station(server, "127.0.0.2");
  CTempDirectory local;
  MakeSparseFile(local / "P/big.tm", kBigFile);
  WriteWholeFile(local / "P/last.txt", "last");

  const auto put =
      StartAndHaltMidway(server, station, {"put", local / "P"}, server.ProjectPath("P/big.tm"));
  server.Process().Signal(kKill);
  EXPECT_EQ(server.Process().Wait(), 128 + kKill);
  server.Restart();
  EXPECT_EQ(put->Wait(), 0) << put->Error();
  EXPECT_EQ(FileSize(server.ProjectPath("P/big.tm")), kBigFile);
  EXPECT_EQ(ReadWholeFile(server.ProjectPath("P/last.txt")), "last");
}

TEST(ProgramTransfer, CutRunsNeverEndAsSuccesses) {
  CServerProgram server;
  const CWorkstation station(server, "127.0.0.2");
  CTempDirectory local;
  MakeSparseFile(server.ProjectPath("P/big.tm"), kBigFile);
  const std::string part = local / ("P/big.tm." + std::to_string(kBigFile) + ".part");

  const auto get = StartAndHaltMidway(server, station,
                                      {"get", "P", "--retries", "0", "--into", local.Path()}, part);
  server.Process().Signal(kKill);
  EXPECT_EQ(get->Wait(), 1) << get->Output();
  EXPECT_FALSE(fs::exists(local / "P/big.tm"));

  // The next one gets the rest only, and leaves nothing behind.
  const std::int64_t held = FileSize(part);
  server.Restart();
  const SRun again = station.Run({"--json", "get", "P", "--into", local.Path()});
  EXPECT_EQ(again.m_nStatus, 0) << again.m_strError;
  EXPECT_TRUE(Holds(again.m_strOutput, "\"bytes_moved\":" + std::to_string(kBigFile - held) + ","))
      << again.m_strOutput;
  EXPECT_EQ(FileSize(local / "P/big.tm"), kBigFile);
  EXPECT_FALSE(fs::exists(part));
}

TEST(ProgramTransfer, InterruptedGetEndsSoonAlsoBetweenTwoFiles) {
  CServerProgram server;
  const CWorkstation station(server, "127.0.0.2");
  CTempDirectory local;
  constexpr int kFiles = 150;  // small ones: the stop comes when none is sent
  for (int i = 0; i < kFiles; ++i)
    WriteWholeFile(server.ProjectPath("P/" + std::to_string(i)), "x");
  const auto get = station.Start({"get", "P", "--into", local.Path()});
  EXPECT_TRUE(WaitUntil([&] { return FileSize(local / "P/1.1.part") >= 0; }));
  get->Signal(kInterrupt);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(get->Wait(), 130);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  EXPECT_EQ(station.Run({"get", "P", "--into", local.Path()}).m_nStatus, 0);
  EXPECT_EQ(TreeOf(local / "P"), TreeOf(server.ProjectPath("P")));
}

TEST(ProgramTransfer, GetNeverMixesVersionsOrLeavesItsDirectory) {
  CServerProgram server;
  const CWorkstation station(server, "127.0.0.2");
  CTempDirectory local;
  CTempDirectory outside;
  WriteWholeFile(server.ProjectPath("P/a.tm"), "0123456789");
  WriteWholeFile(server.ProjectPath("P/link/b.txt"), "b");
  WriteWholeFile(server.ProjectPath("P/c"), "server");
  WriteWholeFile(local / "P/a.tm", "XXXXXXXXXXXXXXXX");  // longer, no part of it
  WriteWholeFile(local / "P/a.tm.9.part", "stale");      // of an earlier version
  WriteWholeFile(local / "P/c.6.part", "ser");           // of this version
  fs::create_directory_symlink(outside.Path(), local / "P/link");

  const SRun get = station.Run({"get", "P", "--retries", "0", "--into", local.Path()});
  EXPECT_EQ(get.m_nStatus, 1);
  EXPECT_TRUE(Holds(get.m_strError, "symbolic link")) << get.m_strError;
  EXPECT_TRUE(fs::is_empty(outside.Path()));
  EXPECT_EQ(ReadWholeFile(local / "P/a.tm"), "0123456789");
  EXPECT_EQ(ReadWholeFile(local / "P/c"), "server");
  EXPECT_FALSE(fs::exists(local / "P/a.tm.9.part") || fs::exists(local / "P/c.6.part"));
}
