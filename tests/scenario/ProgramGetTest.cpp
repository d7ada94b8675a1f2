// kqft get, and files --long: what a project consists of, and which version of
// a file a get goes on with.

#include <filesystem>
#include <fstream>

#include "support/HostFiles.h"
#include "support/Inventories.h"
#include "support/Programs.h"

namespace fs = std::filesystem;

namespace {

class ProgramGet : public testing::Test {
 protected:
  CServerProgram m_server;
  const CWorkstation m_station{m_server.Port()};
  CTempDirectory m_local;

  std::unique_ptr<CProgram> Get(const std::string& into) const {
    return m_station.Run({"--json", "get", "P", "--retries", "0", "--into", m_local / into});
  }
};

TEST_F(ProgramGet, FindsWhatLiesDeepOrInHiddenDirectoriesWithoutAnInventory) {
  const std::string project = m_server.ProjectPath("P/");
  std::string deep;
  for (int level = 1; level <= 7; ++level) {
    deep += "d" + std::to_string(level) + "/";
    WriteWholeFile(project + deep + "file", deep);
  }
  for (const char* name : {"empty", ".git/HEAD", ".git/refs/tag", "ro/a", "ro/b/c", "d1/.x/y"}) {
    WriteWholeFile(project + name, name == std::string("empty") ? "" : name);
  }
  fs::permissions(project + "ro", fs::perms(0555));
  const bool marked = (fs::status(project + "ro").permissions() & fs::perms::owner_write) ==
                      fs::perms::none;  // which Windows does not do to directories
  EXPECT_EQ(Get("a")->Wait(), 0);
  const auto tree = ReadTree(m_server.ProjectPath("P"));
  EXPECT_EQ(tree.size(), 13U);
  EXPECT_EQ(ReadTree(m_local / "a/P"), tree);
  const auto list = m_station.Run({"files", "--long", "P"});
  EXPECT_TRUE(Holds(list->Output(), "\n18 B  -     -       " + deep.substr(0, 18) + "file\n"))
      << list->Output();
  EXPECT_TRUE(Holds(list->Error(), "P: it has no inventory: files below")) << list->Error();

  // With one it is asked for nothing else, and what no list names is there, too.
  WriteWholeFile(project + "lone/ly/deep/file", "f");
  SetFileFacts(project + "lone/ly/deep/file", {1, 1234567890987654300, 0640});
  WriteWholeFile(project + kInventoryName,
                 InventoryOf(project, {"lone/ly/deep/file", ".git/refs/tag"}).Text());
  EXPECT_EQ(Get("b")->Wait(), 0);
  EXPECT_EQ(ReadWholeFile(m_local / "b/P/lone/ly/deep/file") +
                ReadWholeFile(m_local / "b/P/.git/HEAD") + ReadWholeFile(m_local / "b/P/ro/b/c"),
            marked ? "f.git/HEADro/b/c" : "f.git/HEAD");
  const auto all = m_station.Run({"--json", "files", "-l", "P"});
  EXPECT_TRUE(Holds(all->Output(), R"({"name":"lone/ly/deep/file","size":1,)"
                                   R"("time_ns":1234567890987654300,"time":"2009-02-1)"));
  EXPECT_TRUE(
      Holds(all->Output(),
            R"("digest":")" + DigestText(EntryOf(project + "lone/ly/deep/file").m_digest.m_whole)));

  fs::remove(project + kInventoryName);
  if (!MakeLink("..", project + "d1/up")) return;
  const auto circle = Get("c");
  EXPECT_EQ(circle->Wait(), 1);
  EXPECT_TRUE(Holds(circle->Error(), "P/d1/up: it leads back to a directory above it"))
      << circle->Error();
  EXPECT_EQ(ReadWholeFile(m_local / "c/P/ro/b/c"), "ro/b/c");
  fs::permissions(project + "ro", fs::perms(0755));
}

TEST_F(ProgramGet, GoesOnWithTheVersionOfTheServerOnly) {
  constexpr std::int64_t kSize = 70 * kMiB;
  const std::string there = m_server.ProjectPath("P/long.tm");
  const std::string part = m_local / ("P/long.tm." + std::to_string(kSize) + ".part");
  WriteWholeFile(there, PatternBytes(10 * kMiB));
  fs::resize_file(there, kSize);
  const std::string inventory = InventoryOf(m_server.ProjectPath("P/"), {"long.tm"}).Text();
  WriteWholeFile(m_server.ProjectPath("P/") + kInventoryName, inventory);
  const struct {
    std::int64_t m_llOther;  // where the part is of another version
    std::int64_t m_llMoved;
  } cases[] = {{5 * kMiB, kSize - 4 * kMiB},       // in the second block: from there on
               {9 * kMiB - 1, kSize - 5 * kMiB}};  // in the last one, alone fetched again
  for (const auto& [other, moved] : cases) {
    std::string begun = PatternBytes(9 * kMiB);
    begun[static_cast<std::size_t>(other)] ^= 1;
    WriteWholeFile(part, begun);
    const auto get = Get("");
    EXPECT_EQ(get->Wait(), 0) << get->Error();
    EXPECT_TRUE(Holds(get->Output(), "\"bytes_moved\":" + std::to_string(moved) + ","))
        << get->Output();
    EXPECT_TRUE(EntryOf(m_local / "P/long.tm").m_digest == EntryOf(there).m_digest);
    fs::remove(m_local / "P/long.tm");
  }
  // Replaced there behind the inventory's back: what still differs fails.
  std::fstream(there, std::ios::in | std::ios::out | std::ios::binary).seekp(kMiB) << "other";
  const auto failed = Get("");
  EXPECT_EQ(failed->Wait(), 1);
  EXPECT_TRUE(Holds(failed->Error(), "P/long.tm: its bytes are not those")) << failed->Error();
  EXPECT_TRUE(fs::is_empty(m_local / "P"));
  // Without an inventory the end of the part tells.
  fs::remove(m_server.ProjectPath("P/") + kInventoryName);
  WriteWholeFile(part, PatternBytes(9 * kMiB, 2));
  EXPECT_EQ(Get("")->Wait(), 0);
  EXPECT_TRUE(EntryOf(m_local / "P/long.tm").m_digest == EntryOf(there).m_digest);
}

}  // namespace
