// What a put sends, by what the server has and what is known of it; that
// nothing is ever mixed of two versions; healing.

#include <filesystem>
#include <fstream>

#include "support/Inventories.h"
#include "support/Programs.h"
#include "transfer/DamageNote.h"
#include "transfer/ProjectCheck.h"

namespace fs = std::filesystem;

namespace {

constexpr std::int64_t kLong = 72 * kMiB;  // longer than kBlocksAboveBytes
constexpr std::int64_t kRecording = 128 * kMiB;

class ProgramPut : public testing::Test {
 protected:
  CServerProgram m_server;
  const CWorkstation m_station{m_server.Port()};
  CTempDirectory m_local;

  std::string There(const std::string& name) const { return m_server.ProjectPath("P/" + name); }
  static void Change(const std::string& path, std::int64_t position) {
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekg(position);
    const char byte = static_cast<char>(file.get() ^ 4);
    file.seekp(position);
    file.put(byte);
  }
  // What the put says, in JSON or at its end.
  std::string Put(Arguments more, const std::string& says, int status = 0) {
    more.insert(more.begin(), {"put", m_local / "P"});
    const auto put = m_station.Run(more);
    EXPECT_EQ(put->Wait(), status) << put->Error();
    EXPECT_NE(put->Output().find(says), std::string::npos) << says << "\nin\n" << put->Output();
    return put->Output();
  }
  // The server has the bytes that are here, and the inventory tells no others.
  void ExpectSame(const std::string& name) {
    const SFileDigest here = EntryOf(m_local / ("P/" + name)).m_digest;
    EXPECT_EQ(EntryOf(There(name)).m_digest, here) << name;
    CInventory inventory;
    EXPECT_EQ(ReadInventory(m_server.ProjectPath("P"), inventory), "");
    ASSERT_NE(inventory.Find(name), nullptr);
    EXPECT_EQ(inventory.Find(name)->m_digest, here) << name;
    EXPECT_TRUE(inventory.m_head.m_bComplete);
  }
};

TEST_F(ProgramPut, SendsWhatChangedAndSaysWhy) {
  const char* const names[] = {"run.tm", "cut.tm",   "tail.tm", "dump.bin",
                               "a.txt",  "same.txt", "empty",   "gone.txt"};
  for (const char* name : names) WriteWholeFile(m_local / ("P/" + std::string(name)), name);
  for (const char* name : {"P/run.tm", "P/dump.bin"}) MakeSparseFile(m_local / name, kLong);
  WriteWholeFile(m_local / "P/empty", "");
  Put({}, ": 8 new\n");
  const std::string inventory = ReadWholeFile(There(kInventoryName));
  Put({}, "sent 0 files, 0 bytes, in ");
  Put({"-n"}, "would send 0 files, 0 bytes: 8 unchanged\n");
  EXPECT_EQ(ReadWholeFile(There(kInventoryName)), inventory);

  Change(m_local / "P/run.tm", kLong / 2);
  fs::resize_file(m_local / "P/run.tm", kLong + 5);
  Change(m_local / "P/dump.bin", kLong - 1);
  fs::resize_file(m_local / "P/cut.tm", 2);
  std::ofstream(m_local / "P/tail.tm", std::ios::app) << "more";
  WriteWholeFile(m_local / "P/a.txt", "A.TXT");
  WriteWholeFile(m_local / "P/b.txt", "new");
  SetFileFacts(m_local / "P/same.txt", {0, 1772978711000000100, 0600});
  fs::remove(m_local / "P/gone.txt");
  fs::remove(There("empty"));
  Put({"-n"},
      "2 B\tshortened\tP/cut.tm\n4.0 MiB\tchanged\tP/dump.bin\n0 B\tnew\tP/empty\n"
      "4.0 MiB\tgrown\tP/run.tm\n8 B\tchanged\tP/same.txt\n4 B\tgrown\tP/tail.tm\n");
  const std::string bytes = std::to_string(8 * kMiB + 5 + 4 + 2 + 5 + 3 + 8);
  const std::string text = Put({"--json"}, "\"bytes_moved\":" + bytes + ",");
  EXPECT_NE(text.find("\"files_only_there\":1,"), std::string::npos) << text;
  EXPECT_NE(text.find("\"reason\":\"grown\""), std::string::npos) << text;
  for (const char* name :
       {"run.tm", "cut.tm", "tail.tm", "dump.bin", "a.txt", "b.txt", "same.txt", "empty"}) {
    ExpectSame(name);
  }
  EXPECT_EQ(ReadWholeFile(There("gone.txt")), "gone.txt");

  // A change that keeps size and time is seen by --checksum only.
  for (const char* name : {"P/run.tm", "P/a.txt"}) {
    const SFileFacts facts = EntryOf(m_local / name).m_facts;
    Change(m_local / name, 1);
    SetFileFacts(m_local / name, facts);
  }
  Put({}, ": 8 unchanged; 1 file only on the server\n");
  Put({"--checksum"}, ": 2 changed, 6 unchanged; 1 file");
  ExpectSame("run.tm");
  ExpectSame("a.txt");
  Put({"--whole"}, "sent 8 files, 144.0 MiB ");
}

// Of a put that was killed in the middle, and a file that was another then.
TEST_F(ProgramPut, NeverMixesVersionsOfAFileThatWasEditedWhileItsPutWasCut) {
  const auto cut = [&](const std::function<bool()>& when, const std::string& name) {
    const CWorkstation another(m_server.Port(), "127.0.0." + std::to_string(name[0]));
    const auto put = another.Start({"put", m_local / "P"});
    EXPECT_TRUE(WaitUntil(when)) << name;
    put->Signal(SIGKILL);
    put->Wait();
    m_server.ForgetKilled();
  };
  const std::pair<const char*, std::function<void(const std::string&)>> edits[] = {
      {"shortened", [](const std::string& path) { fs::resize_file(path, kRecording - 1); }},
      {"grown", [](const std::string& path) { fs::resize_file(path, kRecording + 1); }},
      {"resumed", [](const std::string&) {}}};
  for (const auto& edit : edits) {
    const std::string name = edit.first, path = m_local / ("P/" + name + ".tm");
    MakeSparseFile(path, kRecording);
    cut([&] { return FileSize(There(name + ".tm")) > kMiB; }, name);
    if (name != "resumed") Change(path, 7);
    edit.second(path);
    Put({"--take-over"}, "1 " + name);
    ExpectSame(name + ".tm");
    fs::remove(path);
  }
  // Blocks on their way to their places; then the former version is back.
  const std::string path = m_local / "P/blocks.tm";
  const auto changeHalf = [&] {
    for (std::int64_t at = 1; at < kRecording / 2; at += kDigestBlockBytes) Change(path, at);
  };
  MakeSparseFile(path, kRecording);
  Put({}, "1 new");
  const SFileFacts former = EntryOf(path).m_facts;
  changeHalf();
  CInventory planned;
  cut(
      [&] {
        ReadInventory(m_server.ProjectPath("P"), planned);
        return planned.Find("blocks.tm") != nullptr && planned.Find("blocks.tm")->m_bMixed;
      },
      "x");
  CTempDirectory fetched;
  const auto get = m_station.Run({"get", "P", "blocks.tm", "--into", fetched.Path()});
  EXPECT_EQ(get->Wait(), 1);
  EXPECT_NE(get->Error().find("P/blocks.tm: its put has not ended ("), std::string::npos)
      << get->Error();
  changeHalf();
  SetFileFacts(path, former);
  Put({"--take-over"}, "1 changed");
  ExpectSame("blocks.tm");
}

TEST_F(ProgramPut, HealsWhatTheServerNotedAndNothingElse) {
  MakeSparseFile(m_local / "P/run.tm", kLong);
  for (const char* name : {"P/small.tm", "P/notes.txt", "P/lost"})
    WriteWholeFile(m_local / name, name);
  Put({}, "4 new");
  Change(There("run.tm"), kLong / 2);
  Change(There("small.tm"), 1);
  Change(There("notes.txt"), 1);
  fs::remove(There("lost"));
  Put({}, "1 new, 3 unchanged");
  fs::remove(There("lost"));
  const Arguments verify = {"--dir", m_server.ProjectPath(""), "--verify", "--note"};
  EXPECT_EQ(CProgram(KQFT_SERVER_PROGRAM, verify).Wait(), 1);
  const std::string bytes = std::to_string(4 * kMiB + 10 + 11 + 6);
  Put({"--json"}, "\"bytes_moved\":" + bytes + ",");
  EXPECT_EQ(FileSize(There(kDamageNoteName)), 0);
  EXPECT_EQ(CProgram(KQFT_SERVER_PROGRAM, verify).Wait(), 0);
  Put({}, ": 4 unchanged\n");

  // A file that is not here stays in the note.
  CDamageNote note;
  note.Set("elsewhere", {});
  note.Set("run.tm", {0});
  WriteWholeFile(There(kDamageNoteName), note.Text());
  Change(m_local / "P/run.tm", kLong - 1);
  Put({}, "; healed 1 file (1 block)\n");
  EXPECT_EQ(note.Parse(ReadWholeFile(There(kDamageNoteName))), "");
  EXPECT_EQ(note.GetFiles(), (CDamageNote::Files{{"elsewhere", {}}}));
  ExpectSame("run.tm");
}

TEST_F(ProgramPut, WithoutAnInventoryTheEndDecidesWhetherARecordingGoesOn) {
  const std::string whole = PatternBytes(3 * kMiB);
  for (const char* name : {"goes-on.tm", "differs.tm", "longer.tm", "equal.tm"}) {
    WriteWholeFile(m_local / ("P/" + std::string(name)), whole);
  }
  WriteWholeFile(There("goes-on.tm"), whole.substr(0, kMiB));
  WriteWholeFile(There("differs.tm"), whole.substr(0, kMiB - 1) + "?");
  WriteWholeFile(There("longer.tm"), whole + "?");
  WriteWholeFile(There("equal.tm"), whole);
  const std::string bytes = std::to_string(8 * kMiB);
  Put({"--json"}, "\"bytes_moved\":" + bytes + ",");
  for (const char* name : {"goes-on.tm", "differs.tm", "longer.tm"}) ExpectSame(name);
  Put({}, ": 3 unchanged, 1 equal by length alone\n");
  Put({"--whole"}, ": 4 changed\n");
  ExpectSame("equal.tm");
}

}  // namespace
