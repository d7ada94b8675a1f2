// The access log's lines on a disk that is full, slow or gone for a while.

#include "programs/kqft-server/LineLog.h"

#include <sstream>

#include "support/TestSystem.h"

namespace {

std::string LostLine(std::int64_t lines) {
  return "lost " + std::to_string(lines);
}

class LineLog : public testing::Test {
 protected:
  LineLog() { testing::internal::CaptureStderr(); }
  ~LineLog() override { m_log.Close(60000); }

  void Begin() { EXPECT_TRUE(m_log.Open() && m_log.Start()); }
  void Add(int from, int to) {
    for (int i = from; i < to; ++i) m_log.Add("line " + std::to_string(i));
  }
  std::vector<std::string> Lines(const std::string& name) {
    std::istringstream text(ReadWholeFile(m_dir / name));
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    return lines;
  }
  std::string End() {
    m_log.Close(60000);
    return testing::internal::GetCapturedStderr();
  }

  CScopedSystem m_system{CFaultPlan().ClockFaster(100)};
  CTempDirectory m_dir;
  CLineLog m_log{m_dir / "log", LostLine};
};

TEST_F(LineLog, AFullDiskCostsNoLineAndTearsNone) {
  WriteWholeFile(m_dir / "log", "killed while it wro");
  m_system.Follow(CFaultPlan().DiskFullAfter(101));
  Begin();
  Add(0, 20);
  EXPECT_TRUE(WaitUntil([&] { return m_system.Calls(EOperation::kWrite) > 4; }));  // in vain
  EXPECT_EQ(FileSize(m_dir / "log"), 19 + 101);
  m_system.Heal();
  Add(20, 30);
  const std::string said = End();
  const std::vector<std::string> lines = Lines("log");
  ASSERT_EQ(lines.size(), 31U);
  for (std::size_t i = 1; i < lines.size(); ++i) {
    EXPECT_EQ(lines[i], "line " + std::to_string(i - 1));
  }
  EXPECT_EQ(said, "kqft-server: access log " + (m_dir / "log") + ": the disk is full\n" +
                      "kqft-server: access log " + (m_dir / "log") +
                      ": is written again; lines lost: 0\n");
}

TEST_F(LineLog, ABrokenDiskDelaysNobodyAndTheLogSaysWhatIsMissing) {
  m_system.Follow(CFaultPlan().FailFrom(EOperation::kWrite, 1, ESystemError::kOther));
  Begin();
  m_log.Add("first");
  EXPECT_TRUE(WaitUntil([&] { return m_system.Struck() > 0; }));
  const std::string line(100000, 'x');
  for (int i = 0; i < 30; ++i) m_log.Add(line);
  m_system.Heal();
  EXPECT_TRUE(WaitUntil([&] { return FileSize(m_dir / "log") > 1000000; }));
  const std::string said = End();
  const std::vector<std::string> lines = Lines("log");
  ASSERT_EQ(lines.size(), 12U);
  EXPECT_EQ(lines[0], "first");
  EXPECT_EQ(std::count(lines.begin(), lines.end(), line), 10);
  EXPECT_EQ(std::count(lines.begin(), lines.end(), "lost 20"), 1);
  EXPECT_NE(said.find("cannot be written\n"), std::string::npos) << said;
  EXPECT_NE(said.find("lines lost: 20\n"), std::string::npos) << said;
}

TEST_F(LineLog, AMovedLogIsBegunAnewWithAWholeLine) {
  m_system.Follow(CFaultPlan().DiskFullAfter(10));
  Begin();
  Add(0, 3);  // 7 bytes each
  EXPECT_TRUE(WaitUntil([&] { return FileSize(m_dir / "log") == 10; }));
  EXPECT_EQ(std::rename((m_dir / "log").c_str(), (m_dir / "old").c_str()), 0);
  m_system.Heal();
  m_log.Reopen();
  EXPECT_TRUE(WaitUntil([&] { return FileSize(m_dir / "log") == 14; }));
  Add(3, 4);
  End();
  EXPECT_EQ(Lines("old"), (std::vector<std::string>{"line 0", "lin"}));
  EXPECT_EQ(Lines("log"), (std::vector<std::string>{"line 2", "lost 1", "line 3"}));
}

TEST_F(LineLog, ManyWritersLoseNothing) {
  m_system.Follow(CFaultPlan().ShortTransfers(1000));
  Begin();
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) threads.emplace_back([&, i] { Add(i * 3000, (i + 1) * 3000); });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(End(), "");
  const std::vector<std::string> lines = Lines("log");
  EXPECT_EQ(std::set<std::string>(lines.begin(), lines.end()).size(), 24000U);
  EXPECT_EQ(lines.size(), 24000U);
}

}  // namespace
