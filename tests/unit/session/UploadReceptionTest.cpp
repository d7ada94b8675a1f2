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

// Nothing but the number of calls depends on what arrives together.
TEST_F(UploadReception, ChunksThatHaveArrivedTogetherAreWrittenByOneCall) {
  const auto chunk = [](std::int64_t position, std::size_t bytes) {
    return MakePacket(NET_CTS_TRANSFILEDATA,
                      Int64(position) + PatternBytes(bytes, static_cast<unsigned>(position)));
  };
  const auto start = [this](const char* name) {
    return MakePacket(NET_CTS_PREPARETRAN_FILE, "\1" + (m_dir / name));
  };
  std::vector<std::string> packets = {start("one")};
  for (std::int64_t i = 0; i < 20; ++i) packets.push_back(chunk(i * 10, 10));
  packets.insert(packets.end(), {chunk(300, 0), chunk(300, 50), start("other"), chunk(350, 50),
                                 MakePacket(NET_CTS_TRANSFILEDATA), chunk(400, 9),
                                 MakePacket(NET_CTS_TRANSFILEDATA_END)});
  const auto receive = [&](bool together, const CFaultPlan& plan) {
    CFakeTransNet net;
    CSession session(&net);
    m_system.Follow(plan);
    for (const char* const name : {"one", "other"}) NativeSystem().RemoveFile(m_dir / name);
    std::string stream;
    for (const std::string& packet : packets) {
      stream += packet;
      if (together && &packet != &packets.back()) continue;
      for (std::string_view rest = stream; !rest.empty();) rest = HandFirst(session, rest);
      stream.clear();
    }
    return std::tuple(net.Packets(), ReadWholeFile(m_dir / "one"), ReadWholeFile(m_dir / "other"));
  };
  for (int room = 0; room < 320; room += 25) {
    const CFaultPlan full = CFaultPlan().DiskFullAfter(room);
    const CFaultPlan slow = CFaultPlan(full).ShortTransfers(7);
    for (const CFaultPlan& plan : {full, slow}) {
      EXPECT_TRUE(receive(true, plan) == receive(false, plan)) << room;
    }
  }
  const auto apart = receive(false, CFaultPlan());
  EXPECT_EQ(m_system.Calls(EOperation::kWrite), 23);
  EXPECT_TRUE(receive(true, CFaultPlan()) == apart);
  EXPECT_EQ(m_system.Calls(EOperation::kWrite), 5) << "16, 4, one, one, one";

  // A link ends between two chunks; by accident the next one lies in the same place.
  const std::string both = chunk(0, 10) + chunk(10, 10);
  AskUpload(true, "run.tm");
  const std::string_view second = HandFirst(m_session, both);
  m_session.ResetForLink();
  AskUpload(true, "run.tm");
  HandFirst(m_session, second);
  EXPECT_EQ(ReadWholeFile(m_dir / "run.tm"), std::string(10, '\0') + PatternBytes(10, 10));
}

}  // namespace
