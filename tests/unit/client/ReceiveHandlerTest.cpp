// The client's receive handler, fed directly.

#include "support/TestClient.h"

namespace {

TEST(ReceiveHandler, BodiesShorterThanTheirFieldsAreIgnored) {
  const std::map<int, std::size_t> needed = {{2500, 12}, {2504, 8}, {2505, 4}, {2506, 8},
                                             {2507, 4},  {2508, 4}, {2509, 4}, {2513, 4}};
  CTestClient client;
  client.m_bStopReceive = false;
  for (int code = 2499; code <= 2516; ++code) {
    const auto entry = needed.find(code);
    for (std::size_t length = 0; length < 25; ++length) {
      client.m_evReply->ResetKQEvent();
      client.m_evFileEnd->ResetKQEvent();
      client.m_nErrorCode = client.m_nServerErrorCode = 77;
      client.Deliver(code, std::string(length, '\xff'));
      if (entry == needed.end() || length >= entry->second) continue;
      EXPECT_NE(client.m_evReply->Wait(0), 0) << code << ' ' << length;
      EXPECT_NE(client.m_evFileEnd->Wait(0), 0) << code << ' ' << length;
      EXPECT_EQ(client.m_nErrorCode + client.m_nServerErrorCode, 154) << code << ' ' << length;
    }
  }
}

TEST(ReceiveHandler, AnswersAreStoredLoggedAndSignalled) {
  CTestClient client;
  struct SAnswer {
    int m_nCode;
    std::string m_strBody;
    CKQEvent* m_pEvent;
    std::string m_strLog;
  };
  CKQEvent* const reply = client.m_evReply;
  CKQEvent* const fileEnd = client.m_evFileEnd;
  const std::vector<SAnswer> answers = {
      {2500, Int32(-8) + Int64(5000000000), reply, "NET_CTS_PREPARETRAN_FILE Rec:-8::5000000000\n"},
      {2502, "", fileEnd, "DealNetMsg NET_CTS_TRANSFILEDATA_END \n"},
      {2503, "", client.m_evTransEnd, "DealNetMsg NET_CTS_TRANS_STOP \n"},
      {2504, Int64(6000000000), reply,
       "DealNetMsg NET_CTS_REQUEST_SERVERFILESIZE m_TotalTransBytes = 6000000000\n"},
      {2508, Int32(-10), nullptr, "DealNetMsg NET_STC_WRITEDATA_ERROR m_nServerErrorCode :-10 \n"},
      // An end without error hides no error.
      {2507, Int32(1), fileEnd, "DealNetMsg NET_STC_TRANSFILEDATA_END m_nServerErrorCode :-10 \n"},
      {2507, Int32(-28), fileEnd,
       "DealNetMsg NET_STC_TRANSFILEDATA_END m_nServerErrorCode :-28 \n"},
      {2509, Int32(1) + "0|1,2|", reply, "DealNetMsg NET_CTS_GETLOSTINFO m_nErrorCode :1 \n"},
      {2509, Int32(-30), reply, "DealNetMsg NET_CTS_GETLOSTINFO m_nErrorCode :-30 \n"},
      {2505, Int32(-7), reply, "DealNetMsg NET_CTS_PREPARETRANS_FILE m_nErrorCode :-7 \n"},
      {2510, Int32(-31), reply, "DealNetMsg NET_CTS_CHANGELOSTINFO \n"},
      {1, "", nullptr, "DealNetMsg NET_COMMAND_CONNECT \n"},
      {0, "", nullptr, "DealNetMsg NET_COMMAND_DISCONNECT \n"}};
  std::string log;
  for (const SAnswer& answer : answers) {
    client.Deliver(answer.m_nCode, answer.m_strBody);
    log += answer.m_strLog;
    for (CKQEvent* event : {reply, fileEnd, client.m_evTransEnd}) {
      EXPECT_EQ(event->Wait(0) == 0, event == answer.m_pEvent) << answer.m_nCode;
      event->ResetKQEvent();
    }
  }
  EXPECT_EQ(client.Log(), log);
  EXPECT_EQ(client.m_llServerFilePos, 5000000000);
  EXPECT_EQ(client.m_strLostInfo, "0|1,2|") << "an answer without text keeps it";
  EXPECT_EQ(client.m_nErrorCode, -7) << "2510 stores no result";
}

TEST(ReceiveHandler, DataIsDroppedAfterAStopAndCountedAlsoWhenItCannotBeWritten) {
  CTestClient client;
  client.Deliver(2506, Int64(0) + "dropped");
  client.m_bStopReceive = false;
  client.m_bStop = true;
  client.Deliver(2506, Int64(0) + "dropped");
  client.m_bStop = false;
  client.Deliver(2506, Int64(-1) + "negative");
  EXPECT_EQ(client.m_llTransBytes, 0);
  EXPECT_EQ(client.m_nErrorCode, -27);
  client.Deliver(2506, Int64(0) + "no file");
  EXPECT_EQ(client.m_llTransBytes, 7);
  EXPECT_FALSE(client.m_bWriting);
  EXPECT_EQ(client.Log(),
            "DealNetMsg NET_STC_TRANSFILEDATA llFilePos >= 0 \n"
            "DealNetMsg NET_STC_TRANSFILEDATA m_nErrorCode = ERROR_CODE_CLIENT_WRITE \n");
}

}  // namespace
