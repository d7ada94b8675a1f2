// Which files have been left alone long enough.

#include "transfer/SettledFiles.h"

#include <filesystem>
#include <fstream>

#include "platform/PathBytes.h"
#include "support/TestSystem.h"

namespace {

using Names = std::vector<std::string>;

class SettledFiles : public testing::Test {
 protected:
  CScopedSystem m_system;
  const CTempDirectory m_dir;
  CSettledFiles m_files{m_dir.Path(), CFilter(), 10000};

  std::string Path(const std::string& name) const {
    return BytesOf(PathOf(m_dir / name).make_preferred());
  }
  Names DueAfter(std::int64_t seconds) {
    m_system.AdvanceClock(seconds);
    m_files.Look();
    return m_files.Due();
  }
};

TEST_F(SettledFiles, AFileIsDueOnceItHasNotChangedForAWhile) {
  for (const char* name : {"a", "d/b"}) WriteWholeFile(m_dir / name, name);
  EXPECT_EQ(DueAfter(100), Names());  // seen for the first time
  EXPECT_EQ(DueAfter(9), Names());
  WriteWholeFile(m_dir / "d/b", "longer");
  EXPECT_EQ(DueAfter(2), Names{"a"});
  EXPECT_EQ(m_files.WhyLater(Path("a")), "");
  WriteWholeFile(m_dir / "a", "changed");
  EXPECT_NE(m_files.WhyLater(Path("a")), "");
  m_files.Handled(Path("a"));  // as it was
  EXPECT_EQ(DueAfter(10), Names{"d/b"});
  m_files.Handled(Path("d/b"));
  std::filesystem::rename(m_dir / "d/b", m_dir / "c");
  EXPECT_EQ(DueAfter(10), Names{"a"});
  EXPECT_EQ(DueAfter(10), (Names{"a", "c"}));
  std::filesystem::remove_all(m_dir.Path());
  EXPECT_EQ(m_files.Look().size(), 1U);
  EXPECT_EQ(m_files.Look().size(), 0U);  // told once
}

TEST_F(SettledFiles, AFileThatIsOpenForWritingIsNotDue) {
  WriteWholeFile(m_dir / "a", "a");
  DueAfter(0);
  std::ofstream writer(m_dir / "a", std::ios::app);
  EXPECT_EQ(DueAfter(100), Names());
  writer.close();
  EXPECT_EQ(DueAfter(9), Names());  // it may just have been closed
  EXPECT_EQ(DueAfter(9), Names());
  EXPECT_EQ(DueAfter(1), Names{"a"});
  writer.open(m_dir / "a", std::ios::app);
  EXPECT_NE(m_files.WhyLater(Path("a")), "");
  m_system.Follow(CFaultPlan().FailFrom(EOperation::kQueryWriters, 1, ESystemError::kOther));
  EXPECT_EQ(DueAfter(10), Names{"a"});  // a system that cannot tell
  EXPECT_EQ(m_files.WhyLater(Path("a")), "");
}

TEST_F(SettledFiles, ARecordingWaitsForItsSideFilesAndTakesThemAlong) {
  for (const char* name : {"run.tm", "run.li", "run2.tm", "z.txt"}) {
    WriteWholeFile(m_dir / name, name);
  }
  DueAfter(0);
  EXPECT_EQ(DueAfter(10), (Names{"run.li", "run.tm", "run2.tm", "z.txt"}));
  for (const char* name : {"run.tm", "run.li", "run2.tm", "z.txt"}) m_files.Handled(Path(name));
  EXPECT_EQ(DueAfter(10), Names());
  WriteWholeFile(m_dir / "run.tm", "run.tm, more");
  DueAfter(0);
  EXPECT_EQ(DueAfter(5), Names());
  WriteWholeFile(m_dir / "run.li", "run.li, more");
  EXPECT_EQ(DueAfter(5), Names());
  EXPECT_EQ(DueAfter(10), (Names{"run.li", "run.tm"}));
  m_files.Handled(Path("run.li"));
  EXPECT_EQ(DueAfter(0), (Names{"run.li", "run.tm"}));
}

}  // namespace
