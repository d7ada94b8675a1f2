// The lists of projects and files, and the deletion of a project.

#include <filesystem>

#include "protocol/MessageCodes.h"
#include "protocol/ResultCodes.h"
#include "support/FakeTransNet.h"
#include "support/HostFiles.h"

namespace {

using Records = std::vector<std::string>;

class ProjectCatalogue : public CSessionTest {
 protected:
  void Create(const std::map<std::string, std::size_t>& files) {
    m_net.m_strFileDir = m_dir / "Prj/";
    for (const auto& [name, bytes] : files) {
      WriteWholeFile(m_dir / ("Prj/" + name), std::string(bytes, 'x'));
    }
  }

  Records List(int code, const std::string& name) {
    Records shown;
    for (const Channel_Key_Value& record : ParseRecords(Ask(code, name))) {
      const bool sized = code == NET_CTS_GETPRJLIST;
      shown.push_back(record.m_strPath + (sized ? "=" + std::to_string(record.m_llSize) : ""));
      SFileStatus status;
      EXPECT_TRUE(sized || System().QueryFile(record.m_strName, status) == ESystemError::kNone)
          << record.m_strName;
    }
    return shown;
  }
  Records Projects() { return List(NET_CTS_GETPRJLIST, ""); }
  Records Files(const std::string& name) { return List(NET_CTS_GETPRJFILELIST, name); }
};

TEST_F(ProjectCatalogue, ProjectsHoldWhatWasSeenSinceTheOneBefore) {
  Create({{"A/A.kqsln", 100}, {"A/Model/m.dat", 50}, {"B/x", 7}, {"E/E.kqsln", 10}});
  MakeSparseFile(m_dir / "Prj/E/large", 5000000000);
  EXPECT_EQ(Projects(), (Records{"A=150", "E=5000000017"}));
  EXPECT_EQ(Files("A"), (Records{"A\\A.kqsln", "A\\Model\\m.dat"}));
  // What is left at the end counts for the next request's first record.
  WriteWholeFile(m_dir / "Prj/Loose.kqsln", "loose");
  EXPECT_EQ(Projects(), (Records{"A=150", "E=5000000017"}));
  EXPECT_EQ(Projects(), (Records{"A=155", "E=5000000017"}));
  EXPECT_EQ(Ask(NET_CTS_GETPRJDIR), m_dir / "Prj/");
}

TEST_F(ProjectCatalogue, DeepFilesAreListedOnlyInNamedDirectories) {
  Create({{"A/.hidden/h", 1},
          {"A/Sub/s", 1},
          {"A/Sub/Deep/f", 1},
          {"A/Sub/Model/f", 1},
          {"A/Sub/X/AnalysisTime/f", 1},
          {"A/Sub/X/Y/f", 1}});
  Records expected = {"A\\.hidden", "A\\Sub\\Model\\f", "A\\Sub\\s", "A\\AnalysisTime\\f"};
  if (MakeLink("..", m_dir / "Prj/A/loop")) {
    std::filesystem::create_directory(m_dir / "Prj/A/..\\..\\victim");  // one name there
    expected.insert(expected.begin() + 1, "A\\loop");
  }
  EXPECT_EQ(Files("A"), expected);
  m_net.m_strFileDir = m_dir / "Prj";  // names are appended as they stand
  EXPECT_EQ(Files("A"), Records{});
}

TEST_F(ProjectCatalogue, DeletingReachesTheNamedDirectoryOnly) {
  Create({{"A/deep/er/file", 1}, {"B/file", 1}});
  WriteWholeFile(m_dir / "canary", "alive");
  const auto remove = [&](const std::string& name) {
    EXPECT_EQ(Ask(NET_CTS_DELETEPRJ, name), Int32(RESULT_OK));
  };
  for (const std::string& name : {std::string("A"), std::string("B\0x", 3)}) remove(name);
  EXPECT_FALSE(std::filesystem::exists(m_dir / "Prj/A"));
  EXPECT_TRUE(std::filesystem::exists(m_dir / "Prj/B/file"));
  remove("");  // the whole project directory
  EXPECT_FALSE(std::filesystem::exists(m_dir / "Prj/B"));
  m_net.m_strFileDir = "";
  remove("");
  EXPECT_EQ(Projects(), Records{});
  EXPECT_EQ(ReadWholeFile(m_dir / "canary"), "alive");
}

}  // namespace
