// Parts of a project: what filters and lists of names pick, what becomes of the
// rest, and what --watch sends.

#include <filesystem>

#include "support/Inventories.h"
#include "support/Programs.h"
#include "support/TestServer.h"
#include "transfer/ProjectCheck.h"
#include "transfer/ProjectClient.h"

namespace fs = std::filesystem;

namespace {

class ProgramPick : public testing::Test {
 protected:
  CServerProgram m_server;
  const CWorkstation m_station{m_server.Port()};
  CTempDirectory m_local;

  void Expect(const Arguments& arguments, const std::string& says, int status = 0) const {
    const auto program = m_station.Run(arguments);
    EXPECT_EQ(program->Wait(), status) << program->Error();
    EXPECT_TRUE(Holds(program->Output() + program->Error(), says))
        << says << "\nin\n"
        << program->Output() << program->Error();
  }
};

TEST_F(ProgramPick, APartIsMovedAndTheRestKeepsItsPlace) {
  const std::string here = m_local / "P", into = m_local / "into";
  for (const char* name : {"a.tm", "b.txt", "d/c.tm", "d/e/f.txt", "tmp/g"}) {
    WriteWholeFile(here + "/" + name, name);
  }
  WriteWholeFile(m_local / "rules", "# what is of no use\n+ /d/e/\n- e\ntmp/\n");
  WriteWholeFile(m_local / "names", "/d/\n\nnosuch\n./b.txt\nd/c.tm\n");
  Expect({"put", "-n", here, "--exclude", "*.txt", "--include", "*", "--exclude", "d"},
         "3 new; 2 left out\n");
  Expect({"put", here, "--exclude-from", m_local / "rules", "--exclude=b*"},
         ": 3 new; 2 left out\n");
  Expect({"put", "--json", here, "--include", "b.txt", "--exclude", "*"},
         "\"files_only_there\":0,\"files_total\":1,\"files_done\":1,");
  CInventory inventory;
  EXPECT_EQ(ReadInventory(m_server.ProjectPath("P"), inventory), "");
  EXPECT_TRUE(inventory.m_head.m_bComplete);
  EXPECT_EQ(inventory.GetFiles().size(), 4U);
  Expect({"put", "-n", here, "--files-from", m_local / "names", "--exclude", "*.txt"},
         "nosuch: no such", 1);
  Expect({"put", "-n", here, here, "--files-from", m_local / "names"}, "below one directory", 2);
  Expect({"put", here, "--exclude-from", m_local / "nosuch"}, "nosuch: cannot be read", 2);
  WriteWholeFile(m_local / "none", "+ ");
  Expect({"put", here, "--exclude-from", m_local / "none"}, "none: the pattern is empty", 2);
  WriteWholeFile(m_local / "none", "");

  Expect({"get", "P", "--into", into, "--exclude", "/d/*.tm"}, "received 3 files, 18 bytes");
  EXPECT_EQ(ReadTree(into + "/P").count("d/c.tm"), 0U);
  Expect({"get", "P", "--into", into, "--files-from", m_local / "none"}, "received 0 files");
  fs::remove(m_server.ProjectPath("P/b.txt"));
  Expect({"verify", "P", here, "--exclude", "tmp/"}, "P/b.txt", 1);
  Expect({"verify", "P", here, "--exclude", "tmp/", "--exclude", "b.txt"}, "P: 3 same\n");

  // What is begun and left out now is not said to be complete.
  SInventoryEntry begun;
  begun.m_facts.m_llSize = 9;
  inventory.m_head.m_bComplete = false;
  inventory.Set("later.tm", begun);
  WriteWholeFile(m_server.ProjectPath("P/kqft.inventory"), inventory.Text());
  fs::remove(m_server.ProjectPath("P/kqft.inventory.old"));
  Expect({"put", here, "--include", "b.txt", "--exclude", "*"}, ": 1 new; 3 left out\n");
  EXPECT_EQ(ReadInventory(m_server.ProjectPath("P"), inventory), "");
  EXPECT_FALSE(inventory.m_head.m_bComplete);
  EXPECT_NE(inventory.Find("later.tm"), nullptr);
}

TEST_F(ProgramPick, WatchSendsWhatHasSettledUntilItIsStopped) {
  WriteWholeFile(m_local / "P/a.tm", "a");
  WriteWholeFile(m_local / "P/x.tmp", "x");
  m_server.Process().Signal(SIGKILL);
  m_server.Process().Wait();
  const auto watch = m_station.Start(
      {"--json", "put", "--watch", "--settle", "1", "--exclude", "*.tmp", m_local / "P"});
  EXPECT_TRUE(WaitUntil([&] { return Holds(watch->Error(), "; it is tried again"); }));
  m_server.Start();
  EXPECT_TRUE(WaitUntil([&] { return Holds(watch->Output(), "{\"type\":\"round\""); }));
  EXPECT_EQ(ReadTree(m_server.ProjectPath("P")),
            (std::map<std::string, std::string>{{"a.tm", "a"}}));
  // Nothing to do: no connection, so that others have their turn.
  Expect({"--no-wait", "put", m_local / "P", "--project", "Q"}, ": 2 new\n");
  watch->Signal(SIGTERM);
  EXPECT_EQ(watch->Wait(), 143);
  EXPECT_TRUE(Holds(watch->Output(), "\"result\":\"interrupted\",\"exit_status\":143,"));
  Expect({"put", "--watch", m_local / "P/a.tm"}, "one directory", 2);
}

// Of the rounds, and the client's state in each.
struct CRounds : ITransferObserver {
  void OnRound(const STransferResult& round) override {
    const std::lock_guard guard(m_mutex);
    ++m_nRounds;
    m_bDone = round.IsDone();
    m_strReasons.clear();
    for (const STransferItem& item : round.m_vecItems) {
      m_strReasons += item.m_strShown + " " + ReasonName(item.m_eReason) + "\n";
    }
  }
  bool IsDone(const std::string& reasons) {
    const std::lock_guard guard(m_mutex);
    return m_bDone && m_strReasons == reasons;
  }
  std::mutex m_mutex;
  int m_nRounds = 0;
  bool m_bDone = false;
  std::string m_strReasons;
};

class WatchRounds : public CServerTest {};

TEST_F(WatchRounds, AreOfWhatChangedAndSurviveTheServer) {
  ASSERT_TRUE(m_server.Init(0));
  const int port = m_server.Port();
  const CTempDirectory local;
  for (const char* name : {"P/run.tm", "P/note.txt"}) WriteWholeFile(local / name, name);
  CRounds rounds;
  CProjectClient client({"127.0.0.1", port, "127.0.0.2", local.Path()}, &rounds);
  std::thread watching([&] {
    SWatchRequest request;
    request.m_put.m_vecPaths = {local / "P"};
    EXPECT_EQ(client.Watch(request), "");
  });
  EXPECT_TRUE(WaitUntil([&] { return rounds.IsDone("P/note.txt new\nP/run.tm new\n"); }));
  EXPECT_TRUE(WaitUntil([&] { return m_server.Links() == 0; }));
  WriteWholeFile(local / "P/run.tm", "P/run.tm, longer");
  fs::remove(local / "P/note.txt");
  EXPECT_TRUE(WaitUntil([&] { return rounds.IsDone("P/run.tm grown\n"); }));
  m_server.Stop();
  fs::rename(local / "P/run.tm", local / "P/other.tm");
  EXPECT_TRUE(WaitUntil([&] { return !rounds.IsDone("P/run.tm grown\n"); }));
  ASSERT_TRUE(m_server.Init(port));
  EXPECT_TRUE(WaitUntil([&] { return rounds.IsDone("P/other.tm new\n"); }));
  client.Cancel();
  watching.join();
  EXPECT_EQ(ReadWholeFile(m_dir / "P/note.txt") + ReadWholeFile(m_dir / "P/other.tm"),
            "P/note.txtP/run.tm, longer");
}

}  // namespace
