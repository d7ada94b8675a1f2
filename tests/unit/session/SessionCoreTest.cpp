// Dispatch, stopping and the log of a session.

#include "platform/KQFile.h"
#include "protocol/MessageCodes.h"
#include "protocol/ResultCodes.h"
#include "support/FakeTransNet.h"

namespace {

using SessionCore = CSessionTest;

// What a session does for a request is its own business.
struct SDerived : CTransClient {
  template <typename T>
  static constexpr bool kWalks = requires(T& session) {
    session.AnswerProjectDir();
  }
  || requires(T& session) { session.ListProjects("", "", nullptr, 0); };
};
static_assert(!SDerived::kWalks<SDerived>);

TEST_F(SessionCore, ShortBodiesAreAnsweredAndUnknownCodesAreNot) {
  for (const int code : {-1, kFirstMessage - 1, kLastMessage + 1}) Ask(code, "body");
  EXPECT_TRUE(m_net.Codes().empty());
  for (const SMessage& message : kMessages) {
    const std::size_t before = m_net.Count(message.m_nCode);
    Ask(message.m_nCode);
    EXPECT_EQ(m_net.Count(message.m_nCode) - before, message.m_bAnswered) << message.m_pName;
  }
  EXPECT_EQ(Ask(NET_CTS_PREPARETRAN_FILE), Int32(CREATE_FILE_ERROR) + Int64(0));
  EXPECT_EQ(Ask(NET_CTS_PREPARETRANS_FILE, "1234567"), Int32(0));
  EXPECT_FALSE(m_session.m_bStopTrans);
  EXPECT_EQ(Ask(NET_CTS_CHANGELOSTINFO, std::string(19, 'x')), Int32(0));
  AskUpload(true, "up");
  Ask(NET_CTS_TRANSFILEDATA, "1234567");
  EXPECT_EQ(m_net.LastBody(NET_STC_WRITEDATA_ERROR), Int32(ERROR_CODE_SERVER_WRITE));
  EXPECT_FALSE(m_session.m_bWriting);
}

TEST_F(SessionCore, StoppingWaitsItsFullTimeOnceAChunkWasStored) {
  EXPECT_TRUE(m_session.StopService());
  EXPECT_EQ(m_system.SleptMilliseconds(), 20);
  m_session.ResetForLink();
  AskUpload(true, "up");
  SendChunk(0, "stored");
  EXPECT_FALSE(m_session.StopService());
  EXPECT_EQ(m_system.SleptMilliseconds(), 20 + 5070);
  m_session.ResetForLink();  // the mark outlives the link; a failed write clears it
  AskUpload(false, "up");
  SendChunk(-1, "x");
  EXPECT_TRUE(m_session.StopService());
}

TEST_F(SessionCore, StoppedSessionRefusesUntilTheNextLink) {
  AskUpload(true, "up");
  m_session.StopService();
  Ask(NET_CTS_TRANSFILEDATA_END);
  EXPECT_EQ(m_net.Bodies(NET_CTS_TRANSFILEDATA_END).size(), 1U);
  EXPECT_TRUE(m_session.m_pTransFile->IsOpen());

  const std::string refused = Int32(ERROR_CODE_STOP_SERVICE);
  SendChunk(0, "late");
  SendChunk(0, "late");
  EXPECT_EQ(m_net.Bodies(NET_STC_WRITEDATA_ERROR), std::vector<std::string>{refused});
  EXPECT_EQ(AskUpload(true, "up"), refused + Int64(0));
  EXPECT_EQ(AskDownload(0, "up"), refused);
  EXPECT_EQ(Ask(NET_CTS_GETLOSTINFO, "up"), refused);
  EXPECT_EQ(Ask(NET_CTS_CHANGELOSTINFO, std::string(20, '\0')), refused);
  EXPECT_EQ(ReadWholeFile(m_dir / "up"), "");
  m_session.ResetForLink();
  EXPECT_EQ(AskUpload(true, "up"), Int32(RESULT_OK) + Int64(0));
}

TEST_F(SessionCore, LogIsNamedAfterTheClientAndBeginsAnewWhenFull) {
  m_session.SetLog(m_dir.Path());
  const std::string first = m_session.m_strLogFile;
  EXPECT_EQ(first.rfind(m_dir / "127.0.0.1_", 0), 0U);
  MakeSparseFile(first, 1048577);
  m_system.AdvanceClock(5);
  Ask(NET_CTS_CHANGELOSTINFO);
  EXPECT_NE(m_session.m_strLogFile, first);
  EXPECT_NE(Log().find("DealNetMsg NET_CTS_CHANGELOSTINFO  nErrorCode = 0 \n "), std::string::npos);
}

}  // namespace
