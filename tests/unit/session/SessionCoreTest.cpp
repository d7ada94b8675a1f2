// Dispatch, stopping and the log of a session.

#include "platform/KQFile.h"
#include "protocol/MessageCodes.h"
#include "protocol/ResultCodes.h"
#include "support/FakeTransNet.h"

namespace {

TEST(SessionCore, ShortBodiesAreAnsweredAndNeverReadBeyondTheirEnd) {
  SSessionBench bench;
  for (const int code : {-1, 2499, 2506, 2507, 2508, 2515}) bench.Ask(code, "body");
  EXPECT_TRUE(bench.m_net.Codes().empty());
  for (int code = 2500; code <= 2514; ++code) {
    for (std::size_t length = 0; length < 20; ++length) bench.Ask(code, std::string(length, '\0'));
  }
  EXPECT_EQ(bench.Ask(NET_CTS_PREPARETRAN_FILE), Int32(CREATE_FILE_ERROR) + Int64(0));
  EXPECT_EQ(bench.Ask(NET_CTS_PREPARETRANS_FILE, "1234567"), Int32(0));
  EXPECT_FALSE(bench.m_session.m_bStopTrans);
  EXPECT_EQ(bench.Ask(NET_CTS_CHANGELOSTINFO, std::string(19, 'x')), Int32(0));
  bench.AskUpload(true, "up");
  bench.Ask(NET_CTS_TRANSFILEDATA, "1234567");
  EXPECT_EQ(bench.m_net.LastBody(NET_STC_WRITEDATA_ERROR), Int32(ERROR_CODE_SERVER_WRITE));
  EXPECT_FALSE(bench.m_session.m_bWriting);
}

TEST(SessionCore, StoppingWaitsItsFullTimeOnceAChunkWasStored) {
  SSessionBench bench;
  EXPECT_TRUE(bench.m_session.StopService());
  EXPECT_EQ(bench.m_system.SleptMilliseconds(), 20);
  bench.m_session.ResetForLink();
  bench.AskUpload(true, "up");
  bench.SendChunk(0, "stored");
  EXPECT_FALSE(bench.m_session.StopService());
  EXPECT_EQ(bench.m_system.SleptMilliseconds(), 20 + 5070);
  bench.m_session.ResetForLink();  // the mark outlives the link; a failed write clears it
  bench.AskUpload(false, "up");
  bench.SendChunk(-1, "x");
  EXPECT_TRUE(bench.m_session.StopService());
}

TEST(SessionCore, StoppedSessionRefusesUntilTheNextLink) {
  SSessionBench bench;
  bench.AskUpload(true, "up");
  bench.m_session.StopService();
  bench.Ask(NET_CTS_TRANSFILEDATA_END);
  EXPECT_EQ(bench.m_net.Bodies(NET_CTS_TRANSFILEDATA_END).size(), 1U);
  EXPECT_TRUE(bench.m_session.m_pTransFile->IsOpen());

  const std::string refused = Int32(ERROR_CODE_STOP_SERVICE);
  bench.SendChunk(0, "late");
  bench.SendChunk(0, "late");
  EXPECT_EQ(bench.m_net.Bodies(NET_STC_WRITEDATA_ERROR), std::vector<std::string>{refused});
  EXPECT_EQ(bench.AskUpload(true, "up"), refused + Int64(0));
  EXPECT_EQ(bench.AskDownload(0, "up"), refused);
  EXPECT_EQ(bench.Ask(NET_CTS_GETLOSTINFO, "up"), refused);
  EXPECT_EQ(bench.Ask(NET_CTS_CHANGELOSTINFO, std::string(20, '\0')), refused);
  EXPECT_EQ(ReadWholeFile(bench.m_dir / "up"), "");
  bench.m_session.ResetForLink();
  EXPECT_EQ(bench.AskUpload(true, "up"), Int32(RESULT_OK) + Int64(0));
}

TEST(SessionCore, LogKeepsItsTextsAndBeginsAnewBeyondOneMebibyte) {
  SSessionBench bench;
  bench.m_session.SetLog(bench.m_dir.Path());
  const std::string first = bench.m_session.m_strLogFile;
  EXPECT_EQ(first.rfind(bench.m_dir / "127.0.0.1_", 0), 0U);
  bench.Ask(NET_CTS_REQUEST_SERVERFILESIZE, "|");
  bench.Ask(NET_CTS_CHANGELOSTINFO);
  for (const char* text : {": DealNetMsg NET_CTS_REQUEST_SERVERFILESIZE  nSize = 0 \n ",
                           ": CTransClient::DealUpdateLostInfo nLength = 0 \n",
                           ": DealNetMsg NET_CTS_CHANGELOSTINFO  nErrorCode = 0 \n "}) {
    EXPECT_NE(bench.Log().find(text), std::string::npos) << text;
  }
  WriteWholeFile(first, std::string(1048576, 'x'));
  bench.m_system.AdvanceClock(100);
  bench.Ask(NET_CTS_TRANS_STOP);
  EXPECT_GT(ReadWholeFile(first).size(), 1048576U);
  bench.Ask(NET_CTS_TRANS_STOP);
  EXPECT_NE(bench.m_session.m_strLogFile, first);
  EXPECT_EQ(bench.Log().substr(19), ": DealNetMsg NET_CTS_TRANS_STOP \n");
}

}  // namespace
