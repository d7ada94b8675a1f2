// What an upload leaves on the disk, and what the client hears of failures.

#include "protocol/MessageCodes.h"
#include "protocol/ResultCodes.h"
#include "support/FakeTransNet.h"

namespace {

using UploadReception = CSessionTest;

TEST_F(UploadReception, FlagDecidesWhetherAnExistingFileIsKept) {
  WriteWholeFile(m_dir / "old", std::string(1000, 'o'));
  EXPECT_EQ(AskUpload(false, "old"), Int32(RESULT_OK) + Int64(1000));
  SendChunk(10, "NEW");
  EXPECT_EQ(ReadWholeFile(m_dir / "old").substr(8, 7), "ooNEWoo");
  EXPECT_EQ(AskUpload(true, "old"), Int32(RESULT_OK) + Int64(1000));
  EXPECT_EQ(ReadWholeFile(m_dir / "old"), "");
  EXPECT_EQ(AskUpload(false, "new\\deep\\file"), Int32(RESULT_OK) + Int64(0));
  SendChunk(0, "made");
  EXPECT_EQ(ReadWholeFile(m_dir / "new/deep/file"), "made");
  EXPECT_EQ(AskUpload(true, "new"), Int32(CREATE_FILE_ERROR) + Int64(0));  // a directory
  const CFaultPlan looks = CFaultPlan().FailFrom(EOperation::kQuery, 1, ESystemError::kOther);
  const CFaultPlan opens = CFaultPlan().Fail(EOperation::kOpen, 1, ESystemError::kTooMany);
  // Another session makes the file between the look at it and its making.
  const CFaultPlan meanwhile = CFaultPlan()
                                   .Fail(EOperation::kOpen, 1, ESystemError::kNotFound)
                                   .FailFrom(EOperation::kQuery, 1, ESystemError::kNotFound);
  for (const CFaultPlan& plan :
       {looks, opens, meanwhile,
        CFaultPlan(looks).Fail(EOperation::kOpen, 1, ESystemError::kTooMany)}) {
    const int before = m_system.Struck();
    m_system.Follow(plan);
    AskUpload(false, "new\\deep\\file");
    EXPECT_EQ(ReadWholeFile(m_dir / "new/deep/file"), "made") << "a fault empties no file";
    EXPECT_GT(m_system.Struck(), before);
  }
}

TEST_F(UploadReception, RepeatedFailureIsAnnouncedAndLoggedOnce) {
  m_system.Follow(CFaultPlan().DiskFullAfter(60000));
  std::vector<std::string> announced = {Int32(ERROR_CODE_NOT_UPDATA)};
  for (int i = 0; i < 2; ++i) SendChunk(0, "x");
  EXPECT_EQ(m_net.Bodies(NET_STC_WRITEDATA_ERROR), announced);
  for (int file = 0; file < 2; ++file) {  // a new file forgets what was announced
    AskUpload(true, "full");
    for (std::int64_t i = 0; i < 3; ++i) SendChunk(i * 60000, std::string(60000, 'x'));
    announced.push_back(Int32(ERROR_CODE_SERVER_WRITE));
    EXPECT_EQ(m_net.Bodies(NET_STC_WRITEDATA_ERROR), announced);
  }
  m_system.Heal();
  m_session.SetLog(m_dir / "log_");
  m_system.AdvanceClock(10);
  for (int i = 0; i < 5; ++i) SendChunk(60000, "refused, since nothing lies before it");
  EXPECT_EQ(Log(), "write data failed " + (m_dir / "full") + "\n");
}

// The next upload goes on where the file ends.
TEST_F(UploadReception, NothingIsStoredBehindALostChunk) {
  m_system.Follow(CFaultPlan().Fail(EOperation::kWrite, 2, ESystemError::kOther));
  AskUpload(false, "run.tm");
  for (std::int64_t i = 0; i < 4; ++i) SendChunk(i * 3, "abc");
  EXPECT_EQ(ReadWholeFile(m_dir / "run.tm"), "abc");
  SendChunk(-1, "x");
  SendChunk(0, "abc");
  SendChunk(6, "behind");
  EXPECT_TRUE(m_session.m_bWriting);  // only a write that was tried clears it
  for (std::int64_t i = 1; i < 3; ++i) SendChunk(i * 3, "def");  // what closes the gap is stored
  EXPECT_EQ(ReadWholeFile(m_dir / "run.tm"), "abcdefdef");
  EXPECT_EQ(AskUpload(false, "run.tm"), Int32(RESULT_OK) + Int64(9));
  SendChunk(20, "far");  // beyond the end of a file is no fault
  EXPECT_EQ(FileSize(m_dir / "run.tm"), 23);
}

}  // namespace
