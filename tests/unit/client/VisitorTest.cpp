// How a visitor comes, judges and leaves.

#include "client/KQFileTransServiceVisitor.h"
#include "protocol/MessageCodes.h"
#include "support/FakeServer.h"
#include "support/TestSystem.h"

namespace {

class Visitor : public testing::Test {
 protected:
  Visitor() { EXPECT_TRUE(m_visitor.Init(m_dir.Path())); }

  int Connect() { return m_visitor.ConnectAndWait("127.0.0.1", m_server.Port()); }

  int Upload(const std::string& file) {
    Channel_Key_Value rec;
    rec.m_strPath = m_dir / file;
    EXPECT_EQ(m_visitor.UpdateFileToDataService(PrintRecords({rec})), 1);
    return m_visitor.WaitForEnd();
  }

  CScopedSystem m_system{CFaultPlan().ClockFaster(100)};
  CTempDirectory m_dir;
  CFakeServer m_server;
  CKQFileTransServiceVisitor m_visitor;
};

TEST_F(Visitor, BusyServerIsAskedAgainOnTheSameLink) {
  m_server.On(2514, [&](const std::string&) {
    if (m_server.Count(2514) == 6) m_server.Send(2514);
  });
  EXPECT_EQ(Connect(), -2);
  EXPECT_EQ(Connect(), 1);
  EXPECT_EQ(m_server.Count(NET_COMMAND_CONNECT), 1U);
  EXPECT_EQ(m_system.SleptMilliseconds(), 1000) << "late answers pass by";
  m_server.Drop();
  EXPECT_EQ(m_visitor.WaitUntilServed(), -14);
}

TEST_F(Visitor, JudgesFilesSizesAndTheLink) {
  ASSERT_EQ(Connect(), 1);
  WriteWholeFile(m_dir / "empty", "");
  EXPECT_EQ(Upload("empty"), 1);
  EXPECT_EQ(Upload("missing"), -17);
  std::int64_t size = 0;
  for (const auto& [told, result] : {std::pair(6, 1), std::pair(-1, -22)}) {
    m_server.Answer(2504, Int64(told));
    EXPECT_EQ(m_visitor.AskSize("a", size), result);
    EXPECT_EQ(size, 6);
  }
  EXPECT_EQ(m_server.Bodies(2504).back(), "a|");
  m_server.On(2502, [&](const std::string&) { m_server.Drop(); });
  EXPECT_LT(Upload("empty"), 0);
}

TEST_F(Visitor, LeavingIsCourteousUnlessTheServerIsSilent) {
  WriteWholeFile(m_dir / "a", "0123");
  for (const int silent : {0, 2502, 2500}) {
    EXPECT_TRUE(m_visitor.Init(m_dir.Path()));
    ASSERT_EQ(Connect(), 1);
    m_server.Silent(silent);
    EXPECT_EQ(Upload("a"), silent == 0 ? 1 : silent == 2502 ? -21 : -19);
    const std::ptrdiff_t before = std::ssize(m_server.Packets());
    m_visitor.Leave("a");
    EXPECT_FALSE(m_visitor.IsConnect());
    if (silent != 0) continue;
    const std::vector<Packet> sent = m_server.Packets();
    ASSERT_GE(std::ssize(sent), before + 3);
    EXPECT_EQ(
        std::vector<Packet>(sent.begin() + before, sent.begin() + before + 3),
        (std::vector<Packet>{{2500, std::string("\0a", 2)}, {2501, Int64(-1) + "x"}, {2502, ""}}));
  }
  EXPECT_EQ(m_server.Bodies(2501).back(), Int64(0) + "0123") << "nothing for the silent one";
  m_server.Stop();
}

}  // namespace
