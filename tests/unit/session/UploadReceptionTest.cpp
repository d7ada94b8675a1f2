// What an upload leaves on the disk, and what the client hears of failures.

#include "protocol/MessageCodes.h"
#include "protocol/ResultCodes.h"
#include "support/FakeTransNet.h"

namespace {

TEST(UploadReception, FlagDecidesWhetherAnExistingFileIsKept) {
  SSessionBench bench;
  WriteWholeFile(bench.m_dir / "old", std::string(1000, 'o'));
  EXPECT_EQ(bench.AskUpload(false, "old"), Int32(RESULT_OK) + Int64(1000));
  bench.SendChunk(10, "NEW");
  EXPECT_EQ(ReadWholeFile(bench.m_dir / "old").substr(8, 7), "ooNEWoo");
  EXPECT_EQ(bench.AskUpload(true, "old"), Int32(RESULT_OK) + Int64(1000));
  EXPECT_EQ(ReadWholeFile(bench.m_dir / "old"), "");
  EXPECT_EQ(bench.AskUpload(false, "new\\deep\\file"), Int32(RESULT_OK) + Int64(0));
  bench.SendChunk(0, "made");
  EXPECT_EQ(ReadWholeFile(bench.m_dir / "new/deep/file"), "made");
  EXPECT_EQ(bench.AskUpload(true, "new"), Int32(CREATE_FILE_ERROR) + Int64(0));  // a directory
}

TEST(UploadReception, RepeatedFailureIsAnnouncedAndLoggedOnce) {
  SSessionBench bench(CFaultPlan().DiskFullAfter(60000));
  std::vector<std::string> announced = {Int32(ERROR_CODE_NOT_UPDATA)};
  for (int i = 0; i < 2; ++i) bench.SendChunk(0, "x");
  EXPECT_EQ(bench.m_net.Bodies(NET_STC_WRITEDATA_ERROR), announced);
  for (int file = 0; file < 2; ++file) {  // a new file forgets what was announced
    bench.AskUpload(true, "full");
    for (int i = 0; i < 3; ++i) bench.SendChunk(i * 60000, std::string(60000, 'x'));
    announced.push_back(Int32(ERROR_CODE_SERVER_WRITE));
    EXPECT_EQ(bench.m_net.Bodies(NET_STC_WRITEDATA_ERROR), announced);
  }
  bench.m_system.Heal();
  bench.m_session.SetLog(bench.m_dir / "log_");
  bench.m_system.AdvanceClock(10);
  for (int i = 0; i < 5; ++i) bench.SendChunk(-1, "x");
  EXPECT_EQ(bench.Log().substr(19), ": write data failed " + (bench.m_dir / "full") + "\n");
}

}  // namespace
