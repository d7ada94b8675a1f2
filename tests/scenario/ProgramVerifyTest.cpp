// kqft-server --verify beside a running server.

#include <filesystem>
#include <fstream>

#include "support/HostFiles.h"
#include "support/Inventories.h"
#include "support/Programs.h"
#include "transfer/DamageNote.h"

namespace {

constexpr std::int64_t kTwoSegments = 100LL << 20;

// A server's project with one file of each fate, and how it is checked.
struct SCheckedProject {
  CServerProgram m_server;
  const std::string m_strPath = m_server.ProjectPath("Run") + "/";
  const std::string m_strDir = m_server.ProjectPath("");

  SCheckedProject() {
    for (const std::string name : {"long.tm", "gone", "sub/small", "short", "chain.tm", "new"}) {
      WriteWholeFile(m_strPath + name, "bytes of " + name);
    }
    MakeSparseFile(m_strPath + "long.tm", kTwoSegments);
    Write(InventoryOf(m_strPath, {"long.tm", "gone", "sub/small", "short", "chain.tm"}));
    std::filesystem::remove(m_strPath + "new");
  }
  void Write(const CInventory& inventory) const {
    WriteWholeFile(m_strPath + kInventoryName, inventory.Text());
  }
  void FlipBit(const std::string& name, std::int64_t position) const {
    std::fstream file(m_strPath + name, std::ios::in | std::ios::out | std::ios::binary);
    file.seekg(position);
    const char byte = static_cast<char>(file.get() ^ 4);
    file.seekp(position);
    file.put(byte);
  }
  // What it prints; the exit status is checked.
  std::string Verify(Arguments more, int status) const {
    more.insert(more.begin(), {"--dir", m_strDir, "--verify"});
    CProgram program(KQFT_SERVER_PROGRAM, more);
    EXPECT_EQ(program.Wait(), status) << program.Output() << program.Error();
    return program.Output();
  }
};

void CopyTree(const std::string& from, const std::string& to) {
  for (const auto& [name, content] : ReadTree(from)) WriteWholeFile(to + name, content);
}

TEST(ProgramVerify, FindsAndNotesEveryDamageWithItsBlock) {
  const SCheckedProject project;
  const auto says = [](const std::string& output, const std::string& line) {
    EXPECT_NE(output.find(line), std::string::npos) << line << "\nin\n" << output;
  };
  EXPECT_EQ(project.Verify({"--note"}, 0), "Run: 5 same\n");

  project.FlipBit("long.tm", (13LL << 20) + 7);
  project.FlipBit("long.tm", kTwoSegments - 1);
  project.FlipBit("sub/small", 3);
  std::filesystem::remove(project.m_strPath + "gone");
  WriteWholeFile(project.m_strPath + "short", "b");
  const bool odd = !NameOr("e\nxtra", "").empty();
  WriteWholeFile(project.m_strPath + (odd ? "e\nxtra" : "extra"), "x");
  WriteWholeFile(project.m_strPath + "chain.li", "[Lost_Pos]\nlost_info_0 = 9,0\n");
  WriteWholeFile(project.m_strPath + "chain.fi", "[FileInfo]\nFileCount=1\nSize1=9\n");
  WriteWholeFile(project.m_strPath + "chain(1).tm", "more");
  const std::string text = project.Verify({"--note", "Run"}, 1);
  says(text, "changed\tRun/long.tm: 2 of its blocks of 4 MiB differ: 3 24\n");
  says(text, "changed\tRun/sub/small\n");
  says(text, "missing\tRun/gone\n");
  says(text, "changed\tRun/short: 1 bytes instead of 14\n");
  says(text, odd ? "extra\tRun/e\\x0Axtra\n" : "extra\tRun/extra\n");
  says(text, "unknown\tRun/chain.tm: it lies in segments\n");
  says(text, "Run: 0 same, 3 changed, 1 missing, 1 extra, 1 unknown\n");
  CDamageNote note;
  EXPECT_EQ(note.Parse(ReadWholeFile(project.m_strPath + kDamageNoteName)), "");
  EXPECT_EQ(
      note.GetFiles(),
      (CDamageNote::Files{{"long.tm", {3, 24}}, {"sub/small", {}}, {"gone", {}}, {"short", {}}}));
  says(project.Verify({"--json"}, 1),
       R"("name":"long.tm","verdict":"changed","size":104857600,"blocks":[{"index":3,"position":)"
       R"(12582912},{"index":24,"position":100663296}]})");

  // Healed but for what is on its way and never was the same.
  CInventory planned = InventoryOf(project.m_strPath, {"long.tm", "sub/small", "short"});
  planned.m_head = {2, false, "run-2", "bob@mill", 0};
  planned.Set("chain.tm", {{17, 0, 0644}, false, {}});
  project.Write(planned);
  const std::string healed = project.Verify({"--note", "--all"}, 1);
  says(healed,
       "3 same, 1 extra, 1 unknown; it is on its way from bob@mill, last heard of at 1970-");
  EXPECT_EQ(FileSize(project.m_strPath + kDamageNoteName), -1);
}

TEST(ProgramVerify, WorkstationComparesBothSides) {
  const SCheckedProject project;
  const CWorkstation station(project.m_server.Port());
  CTempDirectory local;
  const auto verify = [&](Arguments more, int status) {
    more.insert(more.begin(), {"--quiet", "verify", "Run"});
    const auto program = station.Run(more);
    EXPECT_EQ(program->Wait(), status) << program->Error();
    return program->Output();
  };
  CopyTree(project.m_strPath, local.Path());
  EXPECT_EQ(verify({}, 0), "Run: 5 same\n");
  EXPECT_EQ(verify({local.Path()}, 0), "Run: 5 same\n");

  project.FlipBit("long.tm", (13LL << 20) + 7);
  project.FlipBit("sub/small", 3);
  std::filesystem::remove(project.m_strPath + "gone");
  WriteWholeFile(project.m_strPath + "short", "b");
  WriteWholeFile(project.m_strPath + ".more/there", "x");
  EXPECT_EQ(verify({}, 1),
            "extra\tRun/.more/there\nmissing\tRun/gone\n"
            "changed\tRun/long.tm: 1 of its blocks of 4 MiB differ: 3\n"
            "changed\tRun/short: 1 bytes instead of 14\nchanged\tRun/sub/small\n"
            "Run: 1 same, 3 changed, 1 missing, 1 extra\n");
  EXPECT_NE(verify({"--json"}, 1).find(R"("blocks":[{"index":3,"position":12582912}]})"),
            std::string::npos);
  WriteWholeFile(local / "only", "here");
  WriteWholeFile(local / "short", "b");
  std::filesystem::remove(local / "chain.tm");
  EXPECT_EQ(
      verify({local.Path()}, 1),
      "extra\tRun/.more/there: on the server\nmissing\tRun/chain.tm: here\n"
      "missing\tRun/gone: on the server\n"
      "changed\tRun/long.tm: on the server: 1 of its blocks of 4 MiB differ: 3\n"
      "extra\tRun/only: here\n"
      "changed\tRun/short: on the server: 1 bytes instead of 14; here: 1 bytes instead of 14\n"
      "changed\tRun/sub/small: on the server\n"
      "Run: 0 same, 3 changed, 2 missing, 2 extra\n");

  // What is on its way is unknown, but for what is the same here.
  CInventory planned = InventoryOf(project.m_strPath, {"long.tm", "sub/small"});
  planned.m_head = {2, false, "run-2", "bob@mill", 0};
  planned.Set("short", {{17, 0, 0644}, false, {}});
  project.Write(planned);
  const std::string text = verify({}, 1);
  EXPECT_NE(text.find("unknown\tRun/short: not sent to its end; it is on its way from bob@mill, "
                      "last heard of at 1970-"),
            std::string::npos)
      << text;
  EXPECT_EQ(verify({local.Path()}, 1).find("Run/short"), std::string::npos);
}

TEST(ProgramVerify, SegmentsAreComparedWithTheirPartsOfTheFileHere) {
  CServerProgram server;
  const CWorkstation station(server.Port());
  CTempDirectory local;
  const std::string whole = PatternBytes(120000), path = server.ProjectPath("Run/r");
  WriteWholeFile(local / "r.tm", whole);
  const auto lay = [&](const std::string& second, const std::string& ranges) {
    WriteWholeFile(path + ".tm", whole.substr(0, 40000));
    WriteWholeFile(path + "(1).tm", second);
    WriteWholeFile(path + "(2).tm", whole.substr(80000));
    WriteWholeFile(path + ".li", "[Lost_Pos]\nnRecordCount=1\nlost_info_0=" + ranges + "\n");
    WriteWholeFile(path + ".fi", "[FileInfo]\nFileCount=2\nSize1=40000\nSize2=80000\n");
  };
  const auto verify = [&](const Arguments& arguments, int status) {
    const auto program = station.Run(arguments);
    EXPECT_EQ(program->Wait(), status) << program->Error();
    return program->Output().substr(0, program->Output().find("; it has no inventory"));
  };
  const Arguments withLocal = {"verify", "Run", local.Path()};
  lay(whole.substr(40000, 40000), "9,0");
  EXPECT_EQ(verify(withLocal, 0), "Run: 1 same");
  lay(whole.substr(40000, 39999) + "x", "9,0");
  EXPECT_EQ(verify(withLocal, 1),
            "changed\tRun/r.tm: segment 1 of it on the server\nRun: 0 same, 1 changed");
  lay(whole.substr(40000, 40000), "9,1");
  EXPECT_EQ(verify(withLocal, 1),
            "unknown\tRun/r.tm: ranges of it are missing on the server\nRun: 0 same, 1 unknown");
  lay(whole.substr(40000, 40000), "9,0");
  const CTempDirectory chain;  // the same as it lies there
  CopyTree(server.ProjectPath("Run"), chain.Path());
  EXPECT_EQ(verify({"verify", "Run", chain.Path()}, 0), "Run: 5 same");
  std::filesystem::remove(chain / "r(2).tm");
  EXPECT_EQ(verify({"verify", "Run", chain.Path()}, 1),
            "extra\tRun/r(2).tm: on the server\nRun: 4 same, 1 extra");
  WriteWholeFile(path.substr(0, path.size() - 1) + kInventoryName,
                 InventoryOf(local.Path(), {"r.tm"}).Text());
  EXPECT_EQ(verify({"verify", "Run"}, 1),
            "unknown\tRun/r.tm: it lies in segments on the server\nRun: 0 same, 1 unknown\n");
}

TEST(ProgramVerify, ProjectsWithoutInventoryAreUnknownAndWrongUseIsTold) {
  const SCheckedProject project;
  WriteWholeFile(project.m_strDir + "Old/run.tm", "x");
  EXPECT_EQ(project.Verify({"--all"}, 1), "Old: unknown: it has no whole inventory\nRun: 5 same\n");
  const auto asked = CWorkstation(project.m_server.Port()).Run({"verify", "Old"});
  EXPECT_EQ(asked->Output(), "Old: unknown: it has no whole inventory\n");
  EXPECT_EQ(asked->Wait(), 1);
  EXPECT_EQ(project.Verify({"Run"}, 0), "Run: 5 same\n");
  EXPECT_EQ(project.Verify({"Run", "None"}, 1), "Run: 5 same\n");
  for (const Arguments& wrong : {Arguments{".."}, Arguments{"a/b"}, Arguments{"--all", "Run"}}) {
    EXPECT_EQ(project.Verify(wrong, 2), "");
  }
  for (const char* alone : {"Run", "--note", "--json", "--all"}) {
    EXPECT_EQ(CProgram(KQFT_SERVER_PROGRAM, {"--dir", project.m_strDir, alone}).Wait(), 2);
  }
}

}  // namespace
