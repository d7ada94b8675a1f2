// The client's receive handler, fed directly.

#include <new>

#include "platform/KQFile.h"
#include "support/TestClient.h"

namespace {

TEST(ReceiveHandler, WholeAnswersAreStoredLoggedAndSignalled) {
  CScopedSystem system;
  CTestClient client;
  struct SAnswer {
    int m_nCode;
    std::string m_strBody;
    CKQEvent* m_pEvent;
    std::string m_strLog;  // behind "DealNetMsg NET_"
  };
  CKQEvent* const reply = client.m_evReply;
  CKQEvent* const fileEnd = client.m_evFileEnd;
  const SAnswer answers[] = {
      {2502, "", fileEnd, "CTS_TRANSFILEDATA_END \n"},
      {2503, "", client.m_evTransEnd, "CTS_TRANS_STOP \n"},
      {2504, Int64(6000000000), reply,
       "CTS_REQUEST_SERVERFILESIZE m_TotalTransBytes = 6000000000\n"},
      {2508, Int32(-10), nullptr, "STC_WRITEDATA_ERROR m_nServerErrorCode :-10 \n"},
      // An end without error hides no error.
      {2507, Int32(1), fileEnd, "STC_TRANSFILEDATA_END m_nServerErrorCode :-10 \n"},
      {2507, Int32(-28), fileEnd, "STC_TRANSFILEDATA_END m_nServerErrorCode :-28 \n"},
      {2509, Int32(1) + "0|1,2|", reply, "CTS_GETLOSTINFO m_nErrorCode :1 \n"},
      {2509, Int32(-30), reply, "CTS_GETLOSTINFO m_nErrorCode :-30 \n"},
      {2510, Int32(-31), reply, "CTS_CHANGELOSTINFO \n"},
      {0, "", nullptr, "COMMAND_DISCONNECT \n"}};
  std::string log;
  for (const SAnswer& answer : answers) {
    if (!answer.m_strBody.empty() && answer.m_nCode != 2510) {
      client.Deliver(answer.m_nCode, "\xff\xff\xff");  // shorter than its fields
    }
    // The log comes before the event.
    system.Follow(CFaultPlan()
                      .Fail(EOperation::kWrite, 1, ESystemError::kOther)
                      .Below(client.m_strLogPath)
                      .OutOfMemory());
    EXPECT_THROW(client.Deliver(answer.m_nCode, answer.m_strBody), std::bad_alloc);
    for (CKQEvent* event : {reply, fileEnd, client.m_evTransEnd}) {
      EXPECT_NE(event->Wait(0), 0) << answer.m_nCode;
    }
    system.Heal();
    client.Deliver(answer.m_nCode, answer.m_strBody);
    log += "DealNetMsg NET_" + answer.m_strLog;
    for (CKQEvent* event : {reply, fileEnd, client.m_evTransEnd}) {
      EXPECT_EQ(event->Wait(0) == 0, event == answer.m_pEvent) << answer.m_nCode;
      event->ResetKQEvent();
    }
  }
  client.Deliver(2500, Int32(-8) + "1234567");
  client.Deliver(2500, Int32(-8) + Int64(5000000000));
  EXPECT_EQ(client.Log(), log + "NET_CTS_PREPARETRAN_FILE Rec:-8::5000000000\n");
  EXPECT_EQ(client.m_llServerFilePos, 5000000000);
  EXPECT_EQ(client.m_strLostInfo, "0|1,2|") << "an answer without text keeps it";
}

// The next download goes on where the file ends.
TEST(ReceiveHandler, NothingIsStoredAfterAStopOrBehindAChunkThatStaysLost) {
  CScopedSystem system;
  CTestClient client;
  ASSERT_TRUE(client.m_pFile->KQOpen(client.File("run.tm", ""), "r+b"));
  for (const bool stop : {true, false}) {
    client.m_bStop = stop;
    client.m_bStopReceive = !stop;
    client.Deliver(2506, Int64(0) + "dropped");
  }
  client.m_bStopReceive = false;
  system.Follow(
      CFaultPlan().Fail(EOperation::kWrite, 2, ESystemError::kOther).Below(client.m_files.Path()));
  for (std::int64_t i = 0; i < 4; ++i) client.Deliver(2506, Int64(i * 3) + "abc");
  EXPECT_EQ(client.m_nErrorCode, -27);
  EXPECT_EQ(client.m_llTransBytes, 12);
  EXPECT_EQ(ReadWholeFile(client.m_files / "run.tm"), "abc");
  for (const std::int64_t at : {3, 9, 6}) client.Deliver(2506, Int64(at) + "def");
  EXPECT_EQ(ReadWholeFile(client.m_files / "run.tm"), "abcdefdef") << "repairs are taken";

  // A host that asks by itself begins anew.
  CFakeServer server;
  ASSERT_TRUE(client.Connect("127.0.0.1", server.Port()));
  EXPECT_TRUE(client.SendMessage(2505, Int64(12).data(), 8));
  client.Deliver(2506, Int64(12) + "ghi");
  EXPECT_EQ(FileSize(client.m_files / "run.tm"), 15);
}

}  // namespace
