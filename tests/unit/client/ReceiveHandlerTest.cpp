// The client's receive handler, fed directly.

#include "protocol/MessageCodes.h"
#include "support/TestClient.h"

namespace {

bool IsSet(CKQEvent* event) {
  return event->Wait(0) != kWaitTimeout;
}

TEST(ReceiveHandler, BodiesShorterThanTheirFieldsAreIgnored) {
  const std::map<int, std::size_t> needed = {{2500, 12}, {2504, 8}, {2505, 4}, {2506, 8},
                                             {2507, 4},  {2508, 4}, {2509, 4}, {2513, 4}};
  CTestClient client;
  client.m_bStopReceive = false;
  client.m_strLostInfo = "kept";
  for (int code = 2499; code <= 2516; ++code) {
    const auto entry = needed.find(code);
    const std::size_t least = entry == needed.end() ? 0 : entry->second;
    for (std::size_t length = 0; length < 25; ++length) {
      client.m_evReply->ResetKQEvent();
      client.m_evFileEnd->ResetKQEvent();
      client.m_nErrorCode = client.m_nServerErrorCode = 77;
      client.Deliver(code, std::string(length, '\xff'));
      if (length >= least) continue;
      EXPECT_FALSE(IsSet(client.m_evReply) || IsSet(client.m_evFileEnd)) << code << ' ' << length;
      EXPECT_EQ(client.m_nErrorCode + client.m_nServerErrorCode, 154) << code << ' ' << length;
      EXPECT_EQ(client.m_llTransBytes, 0) << code << ' ' << length;
      EXPECT_EQ(client.m_strLostInfo, "kept");
    }
    if (code == 2509) client.m_strLostInfo = "kept";
  }
}

TEST(ReceiveHandler, AnswersAreStoredLoggedAndSignalled) {
  CTestClient client;
  const auto signals = [&](CKQEvent* event, int code, const std::string& body) {
    event->ResetKQEvent();
    client.Deliver(code, body);
    return IsSet(event);
  };
  EXPECT_TRUE(signals(client.m_evReply, 2500, Int32(-8) + Int64(5000000000)));
  EXPECT_EQ(client.m_nErrorCode, -8);
  EXPECT_EQ(client.m_llServerFilePos, 5000000000);
  EXPECT_TRUE(signals(client.m_evFileEnd, 2502, ""));
  EXPECT_TRUE(signals(client.m_evTransEnd, 2503, ""));
  EXPECT_TRUE(signals(client.m_evReply, 2504, Int64(6000000000)));
  EXPECT_EQ(client.m_TotalTransBytes, 6000000000);
  EXPECT_TRUE(signals(client.m_evReply, 2505, Int32(-7)));
  EXPECT_EQ(client.m_nErrorCode, -7);
  client.m_evReply->ResetKQEvent();
  client.m_evFileEnd->ResetKQEvent();
  client.Deliver(2508, Int32(-10));
  EXPECT_FALSE(IsSet(client.m_evReply) || IsSet(client.m_evFileEnd));
  EXPECT_TRUE(signals(client.m_evFileEnd, 2507, Int32(1)));
  EXPECT_EQ(client.m_nServerErrorCode, -10) << "an end without error hides no error";
  client.Deliver(2507, Int32(-28));
  EXPECT_EQ(client.m_nServerErrorCode, -28);
  EXPECT_TRUE(signals(client.m_evReply, 2509, Int32(1) + "0|1,2|"));
  EXPECT_TRUE(signals(client.m_evReply, 2509, Int32(-30)));
  EXPECT_EQ(client.m_strLostInfo, "0|1,2|");
  EXPECT_TRUE(signals(client.m_evReply, 2510, Int32(-31)));
  EXPECT_EQ(client.m_nErrorCode, -30) << "2510 stores no result";
  client.Deliver(1);
  client.Deliver(0);

  EXPECT_EQ(client.Log(),
            "NET_CTS_PREPARETRAN_FILE Rec:-8::5000000000\n"
            "DealNetMsg NET_CTS_TRANSFILEDATA_END \n"
            "DealNetMsg NET_CTS_TRANS_STOP \n"
            "DealNetMsg NET_CTS_REQUEST_SERVERFILESIZE m_TotalTransBytes = 6000000000\n"
            "DealNetMsg NET_CTS_PREPARETRANS_FILE m_nErrorCode :-7 \n"
            "DealNetMsg NET_STC_WRITEDATA_ERROR m_nServerErrorCode :-10 \n"
            "DealNetMsg NET_STC_TRANSFILEDATA_END m_nServerErrorCode :-10 \n"
            "DealNetMsg NET_STC_TRANSFILEDATA_END m_nServerErrorCode :-28 \n"
            "DealNetMsg NET_CTS_GETLOSTINFO m_nErrorCode :1 \n"
            "DealNetMsg NET_CTS_GETLOSTINFO m_nErrorCode :-30 \n"
            "DealNetMsg NET_CTS_CHANGELOSTINFO \n"
            "DealNetMsg NET_COMMAND_CONNECT \n"
            "DealNetMsg NET_COMMAND_DISCONNECT \n");
}

TEST(ReceiveHandler, DataIsDroppedAfterAStopAndCountedAlsoWhenItCannotBeWritten) {
  CTestClient client;
  client.Deliver(2506, Int64(0) + "dropped");
  client.m_bStopReceive = false;
  client.m_bStop = true;
  client.Deliver(2506, Int64(0) + "dropped");
  EXPECT_EQ(client.m_llTransBytes, 0);

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
