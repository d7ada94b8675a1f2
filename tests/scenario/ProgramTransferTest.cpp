// kqft and kqft-server as processes: whole transfers, their ends, and what a
// later run makes of an interrupted one.

#include <filesystem>
#include <fstream>

#include "support/HostFiles.h"
#include "support/Inventories.h"
#include "support/Programs.h"
#include "transfer/ProjectCheck.h"

namespace fs = std::filesystem;

namespace {

constexpr std::int64_t kBigFile = 320 * kMiB;

class ProgramTransfer : public testing::Test {
 protected:
  CServerProgram m_server;
  const CWorkstation m_station{m_server.Port()};
  CTempDirectory m_local;

  // Starts to send a big file and halts the server in the middle of it.
  std::unique_ptr<CProgram> StartAndHaltMidway(const std::string& target) {
    MakeSparseFile(m_local / "P/big.tm", kBigFile);
    auto put = m_station.Start({"put", m_local / "P"});
    EXPECT_TRUE(WaitUntil([&] { return FileSize(target) > kMiB; }));
    m_server.Process().Signal(SIGSTOP);
    EXPECT_TRUE(put->IsRunning()) << put->Error();
    return put;
  }
};

TEST_F(ProgramTransfer, TreeGoesUpAndComesDownByteForByte) {
  // Names with everything that a file system of this machine allows and the
  // protocol can carry.
  const std::pair<std::string, std::string> files[] = {
      {"P/P.kqsln", "project\n"},
      {"P/empty", ""},
      {"P/with space/\xc3\xbc.txt", "utf-8"},
      {"P/" + NameOr("\xff\x80.bin", "bin"), "no utf-8"},
      {"P/" + NameOr("-n 'quoted\" & <x>;*?$", "-n 'quoted & %x;$"), PatternBytes(200000, 3)},
      {"P/Model/Run.TM", PatternBytes(3 * kMiB, 1)},
      {"P/.hidden", "x"},
      {"P/1/2/3/4/5/6/7/deep %41", "deep"}};
  for (const auto& [name, content] : files) WriteWholeFile(m_local / name, content);
  SetFileFacts(m_local / "P/P.kqsln", {0, 1234567890987654300, 0444});
  WriteWholeFile(m_local / "P/kqft.inventory", "none of ours");
  CTempDirectory fetched;

  const auto put = m_station.Run({"put", m_local / "P"});
  EXPECT_EQ(put->Wait(), 0) << put->Error();
  EXPECT_EQ(ReadTree(m_server.ProjectPath("P")), ReadTree(m_local / "P"));
  EXPECT_TRUE(Holds(put->Output(), "sent 8 files, 3.2 MiB (3,345,754 bytes), in")) << put->Output();
  EXPECT_TRUE(Holds(Generic(put->Error()), "P/kqft.inventory: a file of this name"))
      << put->Error();
  const std::string check = "cd " + m_server.ProjectPath("P") + " && xxhsum -c kqft.inventory";
  const bool canCheck = std::system("command -v xxhsum >/dev/null") == 0;
  EXPECT_EQ(canCheck ? std::system((check + " >/dev/null 2>&1").c_str()) : 0, 0);
  CProgram verify(KQFT_SERVER_PROGRAM, {"--dir", m_server.ProjectPath(""), "--verify"});
  EXPECT_EQ(verify.Wait(), 0);
  EXPECT_EQ(verify.Output(), "P: 8 same\n");
  EXPECT_TRUE(Holds(m_station.Run({"put", "-n", m_local / "P"})->Output(),
                    "would send 0 files, 0 bytes: 8 unchanged\n"));
  EXPECT_TRUE(Holds(m_station.Run({"ls"})->Output(), "\nP     3.2 MiB  2"));
  const std::string list = m_station.Run({"files", "P"})->Output();
  EXPECT_TRUE(Holds(list, "\n      8 B  2009-02-1") && Holds(list, "00  P.kqsln\n")) << list;
  EXPECT_TRUE(Holds(list, "  with space/\xc3\xbc.txt\n")) << list;
  const std::string below = m_station.Run({"ls", "-l", "P/1/2/"})->Output();
  EXPECT_TRUE(Holds(below, " 1/2/3/4/5/6/7/deep %41\n")) << below;
  EXPECT_EQ(std::count(below.begin(), below.end(), '\n'), 2) << below;
  EXPECT_EQ(m_station.Run({"ls", "P/1/2/9"})->Wait(), 1);
  EXPECT_EQ(Generic(m_station.Run({"dir"})->Output()), m_server.ProjectPath("") + "\n");

  const auto get = m_station.Run({"get", "P", "--into", fetched.Path()});
  EXPECT_EQ(get->Wait(), 0) << get->Error();
  EXPECT_TRUE(Holds(get->Output(), "received 8 files, 3.2 MiB (3,345,754 bytes), in"));
  fs::remove(fetched / "P/empty");
  const auto again = m_station.Run({"--json", "get", "P", "--into", fetched.Path()});
  EXPECT_TRUE(Holds(again->Output(), "\"files_done\":8,")) << again->Output();
  EXPECT_TRUE(Holds(again->Output(), "\"bytes_moved\":0,")) << again->Output();
  EXPECT_TRUE(Holds(again->Output(),
                    "\"status\",\"command\":\"get\",\"bytes_done\":3345754,"
                    "\"bytes_total\":3345754,\"files_done\":7,\"files_total\":8,"))
      << again->Output();
  EXPECT_TRUE(ReadTree(fetched / "P") == ReadTree(m_local / "P"));
  for (const auto& [name, content] : files) {
    EXPECT_TRUE(EntryOf(fetched / name).m_facts == EntryOf(m_local / name).m_facts) << name;
  }

  const Arguments quick = {"get",       "P", "P.kqsln", "empty",
                           "--retries", "1", "--into",  fetched.Path()};
  RemoveMarked(fetched / "P/P.kqsln");
  WriteWholeFile(fetched / "P/P.kqsln", "PROJECT\n");  // as long, and another time
  EXPECT_EQ(m_station.Run(quick)->Wait(), 0);
  EXPECT_EQ(ReadWholeFile(fetched / "P/P.kqsln") + ReadWholeFile(fetched / "P/P.kqsln~"),
            "project\nPROJECT\n");
  RemoveMarked(fetched / "P/P.kqsln");
  WriteWholeFile(m_server.ProjectPath("P/P.kqsln"), "damaged\n");
  const auto damaged = m_station.Run(quick);
  EXPECT_EQ(damaged->Wait(), 1);
  EXPECT_TRUE(Holds(damaged->Error(), "P/P.kqsln: its bytes are not those")) << damaged->Error();
  EXPECT_FALSE(fs::exists(fetched / "P/P.kqsln"));

  EXPECT_EQ(m_station.Start({"rm", "P"})->Wait(), 2);
  EXPECT_TRUE(fs::exists(m_server.ProjectPath("P")));
  const auto unknown = m_station.Run({"rm", "--yes", "Q"});
  EXPECT_EQ(unknown->Wait(), 1);
  EXPECT_EQ(unknown->Error(), "kqft: Q: the server knows no project of this name\n");
  EXPECT_EQ(m_station.Start({"rm", "--yes", "P"})->Wait(), 0);
  EXPECT_FALSE(fs::exists(m_server.ProjectPath("P")));
}

TEST_F(ProgramTransfer, EveryFileThatFailsIsNamedAndTheOthersArrive) {
  for (const char* name : {"a.txt", "taken", "z.txt"})
    WriteWholeFile(m_local / ("P/" + std::string(name)), name);
  const bool odd = !NameOr("a\\b", "").empty();
  if (odd) std::ofstream(m_local / "P/back\\slash") << "b";
  fs::create_directories(m_server.ProjectPath("P/taken"));  // no file can be made there
  const bool linked = MakeLink(m_local / "nowhere", m_local / "P/broken");

  const auto put = m_station.Run({"put", m_local / "P", "--json", "--retries", "0"});
  EXPECT_EQ(put->Wait(), 1);
  EXPECT_EQ(ReadWholeFile(m_server.ProjectPath("P/a.txt")), "a.txt");
  EXPECT_EQ(ReadWholeFile(m_server.ProjectPath("P/z.txt")), "z.txt");
  EXPECT_TRUE(Holds(
      put->Error(),
      "P/taken: the server cannot create the file; another workstation may be writing it (-8 "));
  EXPECT_EQ(Holds(put->Error(), "P/back/slash: "), odd) << put->Error();
  EXPECT_EQ(Holds(put->Error(), "skipped "), linked) << put->Error();
  EXPECT_TRUE(Holds(put->Output(), "\"code\":-8,\"code_name\":\"CREATE_FILE_ERROR\""));
  EXPECT_TRUE(Holds(put->Output(), "\"result\":\"failed\",\"exit_status\":1,"));
  EXPECT_TRUE(
      Holds(put->Output(),
            odd ? "\"files_total\":4,\"files_done\":2,\"bytes_total\":16,\"bytes_done\":10,"
                : "\"files_total\":3,\"files_done\":2,\"bytes_total\":15,\"bytes_done\":10,"))
      << put->Output();
  const auto plan =
      m_station.Run({"put", "-n", "--project", "P", m_local / "P", m_local / "P/a.txt"});
  EXPECT_EQ(plan->Wait(), 1);
  EXPECT_TRUE(Holds(plan->Error(), "P/a.txt: another file has the same name")) << plan->Error();
  const char* const noFile = linked ? "/dev/null" : "NUL";
  EXPECT_NE(m_station.Run({"put", "--project", "Q", m_local / "P/a.txt", noFile})->Wait(), 0);

  const auto get =
      m_station.Run({"get", "P", "a.txt", "nosuch", "a.txt", "--into", m_local / "in"});
  EXPECT_EQ(get->Wait(), 1);
  EXPECT_EQ(ReadWholeFile(m_local / "in/P/a.txt"), "a.txt");
  EXPECT_TRUE(Holds(get->Error(), "P/nosuch: the server cannot open the file (-7 "));
  EXPECT_TRUE(Holds(get->Output(), "received 1 of 2 files, ")) << get->Output();
  EXPECT_FALSE(fs::exists(m_local / "in/P/nosuch"));
}

TEST_F(ProgramTransfer, InterruptedPutEndsBy130AndTheNextOneGoesOn) {
  const std::string target = m_server.ProjectPath("P/big.tm");
  const auto put = StartAndHaltMidway(target);
  CInventory planned;
  EXPECT_EQ(ReadInventory(m_server.ProjectPath("P"), planned), "");
  ASSERT_NE(planned.Find("big.tm"), nullptr);
  EXPECT_FALSE(planned.m_head.m_bComplete || planned.Find("big.tm")->m_bDigest);
  put->Signal(SIGINT);
  m_server.Process().Signal(SIGCONT);
  EXPECT_EQ(put->Wait(), 130);
  EXPECT_TRUE(Holds(put->Error(), "interrupted")) << put->Error();
  const std::int64_t held = FileSize(target);
  EXPECT_GT(held, kMiB);
  EXPECT_LT(held, kBigFile);
  const auto again = m_station.Run({"--json", "put", m_local / "P"});
  EXPECT_EQ(again->Wait(), 0) << again->Error();
  EXPECT_TRUE(Holds(again->Output(), "\"bytes_moved\":" + std::to_string(kBigFile - held) + ","));
  EXPECT_EQ(FileSize(target), kBigFile);
  CInventory complete;
  EXPECT_EQ(ReadInventory(m_server.ProjectPath("P"), complete), "");
  EXPECT_TRUE(complete.m_head.m_bComplete);
  EXPECT_EQ(complete.Find("big.tm")->m_digest, EntryOf(target).m_digest);
}

TEST_F(ProgramTransfer, FileThatChangesWhileItIsSentGoesWholeAgain) {
  const std::string target = m_server.ProjectPath("P/big.tm");
  const auto put = StartAndHaltMidway(target);
  std::fstream(m_local / "P/big.tm", std::ios::in | std::ios::out) << "changed";
  m_server.Process().Signal(SIGCONT);
  EXPECT_EQ(put->Wait(), 0) << put->Error();
  EXPECT_TRUE(Holds(put->Error(), "1 file left, trying again")) << put->Error();
  EXPECT_EQ(EntryOf(target).m_digest, EntryOf(m_local / "P/big.tm").m_digest);
}

TEST_F(ProgramTransfer, PutOutlivesAServerThatIsKilledAndComesBack) {
  WriteWholeFile(m_local / "P/last.txt", "last");
  const std::string target = m_server.ProjectPath("P/big.tm");
  const auto put = StartAndHaltMidway(target);
  m_server.Process().Signal(SIGKILL);
  EXPECT_EQ(m_server.Process().Wait(), 128 + SIGKILL);
  m_server.Start();
  EXPECT_EQ(put->Wait(), 0) << put->Error();
  EXPECT_EQ(FileSize(target), kBigFile);
  EXPECT_EQ(ReadWholeFile(m_server.ProjectPath("P/last.txt")), "last");
}

TEST_F(ProgramTransfer, InterruptedGetEndsSoonAlsoBetweenTwoFiles) {
  constexpr int kFiles = 150;  // small ones: the stop comes when none is sent
  for (int i = 0; i < kFiles; ++i) {
    WriteWholeFile(m_server.ProjectPath("P/" + std::to_string(i)), "x");
  }
  const Arguments command = {"get", "P", "--into", m_local.Path()};
  const auto get = m_station.Start(command);
  EXPECT_TRUE(WaitUntil([&] { return FileSize(m_local / "P/1.1.part") >= 0; }));
  get->Signal(SIGTERM);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(get->Wait(), 143);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(8));
  EXPECT_EQ(m_station.Start(command)->Wait(), 0);
  EXPECT_EQ(ReadTree(m_local / "P"), ReadTree(m_server.ProjectPath("P")));
}

TEST_F(ProgramTransfer, GetNeverMixesVersionsOrLeavesItsDirectory) {
  CTempDirectory outside;
  WriteWholeFile(m_server.ProjectPath("P/a.tm"), "0123456789");
  WriteWholeFile(m_server.ProjectPath("P/link/b.txt"), "b");
  WriteWholeFile(m_server.ProjectPath("P/c"), "server");
  WriteWholeFile(m_server.ProjectPath("P/d"), "new");
  WriteWholeFile(m_server.ProjectPath("P/d.3.part"), "what would meet the part of d");
  WriteWholeFile(m_local / "P/a.tm", "XXXXXXXXXXXXXXXX");  // longer, no part of it
  WriteWholeFile(m_local / "P/d.3.part", "longer");        // no part either
  WriteWholeFile(m_local / "P/a.tm.9.part", "stale");      // of an earlier version
  WriteWholeFile(m_local / "P/c.6.part", "ser");           // of this version
  const bool linked = MakeLink(outside.Path(), m_local / "P/link");

  const auto get = m_station.Run({"get", "P", "--retries", "0", "--into", m_local.Path()});
  EXPECT_EQ(get->Wait(), 1);
  EXPECT_EQ(Holds(get->Error(), "symbolic link"), linked) << get->Error();
  EXPECT_TRUE(fs::is_empty(outside.Path()));
  EXPECT_EQ(ReadWholeFile(m_local / "P/a.tm"), "0123456789");
  EXPECT_EQ(ReadWholeFile(m_local / "P/c"), "server");
  EXPECT_EQ(ReadWholeFile(m_local / "P/d"), "new");
  EXPECT_TRUE(Holds(get->Error(), "P/d.3.part: another file would get the same place here"));
  EXPECT_FALSE(fs::exists(m_local / "P/a.tm.9.part") || fs::exists(m_local / "P/c.6.part"));

  MakeSparseFile(m_server.ProjectPath("Q/changes"), kBigFile);
  const auto changed = m_station.Start({"get", "Q", "--retries", "0", "--into", m_local.Path()});
  EXPECT_TRUE(WaitUntil([&] {
    return FileSize(m_local / ("Q/changes." + std::to_string(kBigFile) + ".part")) > kMiB;
  }));
  fs::resize_file(m_server.ProjectPath("Q/changes"), kMiB);
  EXPECT_EQ(changed->Wait(), 1);
  EXPECT_TRUE(Holds(changed->Error(), "changed on the server")) << changed->Error();
  EXPECT_TRUE(fs::is_empty(m_local / "Q"));
}

}  // namespace
