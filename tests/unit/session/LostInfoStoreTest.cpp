// The text made of the side files, and what resent ranges leave in them.

#include <filesystem>
#include <thread>

#include "protocol/MessageCodes.h"
#include "protocol/ResultCodes.h"
#include "support/FakeTransNet.h"
#include "support/HostFiles.h"

namespace {

class LostInfoStore : public CSessionTest {
 protected:
  // The whole answer to 2509 for the file of a name.
  std::string Text(const std::string& name) { return Ask(NET_CTS_GETLOSTINFO, m_dir / name); }

  std::string Change(int index, std::int64_t position, std::int64_t length) {
    return Ask(NET_CTS_CHANGELOSTINFO, Int32(index) + Int64(position) + Int64(length));
  }
};

TEST_F(LostInfoStore, TextHoldsHeadRangesAndSizes) {
  const std::string ok = Int32(RESULT_OK);
  EXPECT_EQ(Text("run.tm"), ok);
  WriteWholeFile(m_dir / "run.li",
                 "[Lost_Pos]\nnRecordCount=2\nnHeadSize=64\nlost_info_0=0,512\nlost_info_1=7,8\n");
  EXPECT_EQ(Text("run.tm"), ok + "64|0,512,7,8|");
  WriteWholeFile(m_dir / "run.fi", "[FileInfo]\nFileCount=2\nSize1=10\nSize2=20\n");
  EXPECT_EQ(Text("run.tm"), ok + "64|0,512,7,8|10,20");
  WriteWholeFile(m_dir / "run.li", "[Lost_Pos]\nnRecordCount=-4\nnHeadSize=128\n");
  EXPECT_EQ(Text("run.tm"), ok + "128||10,20");
  // As another system writes it, with one record missing.
  WriteWholeFile(m_dir / "a.b.li",
                 "[lost_pos]\r\nNRECORDCOUNT = 3\r\nlost_info_0 = 1,2\r\nlost_info_2=5,6\r\n");
  EXPECT_EQ(Text("a.b.tm"), ok + "0|1,2,,5,6|");

  if (!MakeLink("deep/stored.li", m_dir / "link.li")) return;
  WriteWholeFile(m_dir / "deep/stored.li", "[Lost_Pos]\nlost_info_0=1,2\n");
  Text("link.tm");
  EXPECT_EQ(Change(0, 3, 0), ok);
  EXPECT_TRUE(std::filesystem::is_symlink(m_dir / "link.li"));
  EXPECT_EQ(ReadWholeFile(m_dir / "deep/stored.li"), "[Lost_Pos]\nlost_info_0=3,0\n");
}

TEST_F(LostInfoStore, TwoStoresLoseNothingOfEachOther) {
  constexpr int kChanges = 20;
  WriteWholeFile(m_dir / "run.li", "[Lost_Pos]\n");
  const auto change = [this](int store) {
    CFakeTransNet net;
    CSession session(&net);
    Hand(session, NET_CTS_GETLOSTINFO, m_dir / "run.tm");
    for (int i = 0; i < kChanges; ++i) {
      Hand(session, NET_CTS_CHANGELOSTINFO, Int32(2 * i + store) + Int64(i) + Int64(store));
      EXPECT_EQ(net.LastBody(NET_CTS_CHANGELOSTINFO), Int32(RESULT_OK));
    }
  };
  std::thread other([&] { change(1); });
  change(0);
  other.join();
  const std::string records = ReadWholeFile(m_dir / "run.li");
  for (int i = 0; i < 2 * kChanges; ++i) {
    EXPECT_TRUE(Holds(records, "lost_info_" + std::to_string(i) + "=")) << i;
  }
}

TEST_F(LostInfoStore, MissingAndUnusableFilesAreReportedWithoutText) {
  EXPECT_EQ(Change(0, 1, 1), Int32(ERROR_CODE_LOSTINFO_NOFILE));
  Text("run.tm");  // named, though missing
  EXPECT_EQ(Change(0, 1, 1), Int32(ERROR_CODE_LOSTINFO_NOFILE));
  WriteWholeFile(m_dir / "dir.li/file", "");
  EXPECT_EQ(Text("dir.tm"), Int32(ERROR_CODE_LOSTINFO_RECORD));
  EXPECT_EQ(Change(0, 1, 1), Int32(ERROR_CODE_LOSTINFO_RECORD));
  const std::string before = "[Lost_Pos]\nnRecordCount=1000001\n";
  WriteWholeFile(m_dir / "run.li", before);
  EXPECT_EQ(Text("run.tm"), Int32(ERROR_CODE_LOSTINFO_ACCESS));
  for (const EOperation step : {EOperation::kWrite, EOperation::kFlush, EOperation::kRename}) {
    m_system.Follow(CFaultPlan().Fail(step, 1, ESystemError::kNoSpace));
    EXPECT_EQ(Change(0, 1, 1), Int32(ERROR_CODE_LOSTINFO_ACCESS));
    EXPECT_EQ(ReadWholeFile(m_dir / "run.li"), before);
    const std::filesystem::directory_iterator left(m_dir.Path());
    EXPECT_EQ(std::distance(begin(left), end(left)), 2) << "beside dir.li and run.li";
  }
  WriteWholeFile(m_dir / "a.li", "[Lost_Pos]\nnRecordCount=1\nlost_info_0=1,2\n");
  for (const EOperation look :
       {EOperation::kQuery, EOperation::kOpen}) {  // never "nothing is lost"
    m_system.Follow(CFaultPlan().FailFrom(look, 1, ESystemError::kTooMany));
    EXPECT_EQ(Text("a.tm"), Int32(ERROR_CODE_LOSTINFO_RECORD));
  }
}

}  // namespace
