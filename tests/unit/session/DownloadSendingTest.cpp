// What a download sends, and that it harms nothing once it is outdated.

#include "platform/KQFile.h"
#include "protocol/DataPacket.h"
#include "protocol/MessageCodes.h"
#include "protocol/ResultCodes.h"
#include "protocol/TransferTypes.h"
#include "support/FakeTransNet.h"

namespace {

const std::string kOk = Int32(RESULT_OK);
const std::string kStopped = Int32(ERROR_CODE_SEND_STOPPED);

class DownloadSending : public CSessionTest {
 protected:
  // The end code of the latest download, once `times` of them have come.
  std::string EndOf(std::size_t times = 1) {
    EXPECT_TRUE(m_net.WaitFor(NET_STC_TRANSFILEDATA_END, times) && WaitIdle());
    return m_net.LastBody(NET_STC_TRANSFILEDATA_END);
  }

  // What the data packets carry, checked to follow one another.
  std::string Received(std::int64_t position) {
    std::string all;
    for (const std::string& body : m_net.Bodies(NET_STC_TRANSFILEDATA)) {
      EXPECT_EQ(body.substr(0, 8), Int64(position + std::ssize(all)));
      all += body.substr(kPositionBytes);
    }
    return all;
  }

  // Starts a download and returns while its first packet is being sent.
  void HoldDownload(const std::string& name) {
    m_net.m_bHold = true;
    AskDownload(0, name);
    EXPECT_TRUE(WaitUntil([this] { return m_net.m_bHeld; }));
  }
};

TEST_F(DownloadSending, PositionsGoBeyondFourGibibytesBothWays) {
  constexpr std::int64_t kStart = (std::int64_t{1} << 32) - 100;
  const std::string piece = PatternBytes(1048577);
  for (const std::int64_t position : {std::int64_t{1} << 31, kStart}) {
    AskUpload(false, "sparse");
    SendChunk(position, piece);
    Ask(NET_CTS_TRANSFILEDATA_END);
  }
  EXPECT_EQ(AskDownload(kStart + 1048577, "sparse"), kOk);  // nothing left to send
  EXPECT_EQ(EndOf(), kOk);
  EXPECT_EQ(AskDownload(kStart, "sparse"), kOk);
  EXPECT_EQ(EndOf(2), kOk);
  EXPECT_EQ(Received(kStart), piece);
  EXPECT_EQ(m_net.Bodies(NET_STC_TRANSFILEDATA)[15].size(), 65516U);
  const std::string path = m_dir / "sparse";
  EXPECT_EQ(Ask(NET_CTS_REQUEST_SERVERFILESIZE, path + "||none|" + path),
            Int64(2 * (kStart + 1048577)));
}

TEST_F(DownloadSending, FailuresAreAnsweredOrEndTheFile) {
  WriteWholeFile(m_dir / "file", "content");
  EXPECT_EQ(AskDownload(0, "none"), Int32(ERROR_CODE_SERVER_OPENFILE));
  EXPECT_EQ(AskDownload(0, ""), Int32(ERROR_CODE_SERVER_OPENFILE));  // a directory
  AskUpload(true, "up");
  EXPECT_EQ(AskDownload(0, "file"), Int32(ERROR_CODE_CLIENT_UPDATA));
  Ask(NET_CTS_TRANSFILEDATA_END);
  m_net.m_bRefuseData = true;
  EXPECT_EQ(AskDownload(0, "file"), kOk);
  EXPECT_EQ(EndOf(), kStopped);
  m_net.m_bRefuseData = false;
  EXPECT_EQ(AskDownload(-5, "file"), kOk);  // sent from the start all the same
  EndOf(2);
  EXPECT_EQ(Received(-5), "content");
  // The sender stays for the next file of its link, and for no other's.
  m_system.Follow(CFaultPlan().NoThreads());
  EXPECT_EQ(AskDownload(0, "file"), kOk);
  EndOf(3);
  m_session.StopService();
  m_session.WaitSenders();
  m_session.ResetForLink();
  EXPECT_EQ(AskDownload(0, "file"), Int32(ERROR_CODE_SERVER_OPENFILE));
  EXPECT_EQ(m_session.m_nTransType, PROCESS_TYPE_NONE);
  EXPECT_FALSE(m_session.m_pTransFile->IsOpen());
}

TEST_F(DownloadSending, StopIsAcknowledgedAfterTheBlockInHand) {
  WriteWholeFile(m_dir / "file", PatternBytes(5 << 20));
  m_net.m_bRoom = false;  // a client that does not read
  EXPECT_EQ(AskDownload(0, "file"), kOk);
  EXPECT_TRUE(WaitUntil([this] { return m_net.m_bHeld; }));
  EXPECT_EQ(AskUpload(true, "up"), Int32(ERROR_CODE_SERVER_DOWNDATA) + Int64(0));
  EXPECT_EQ(Ask(NET_CTS_GETLOSTINFO, "file"), Int32(ERROR_CODE_TRANS_BUSY));
  Ask(NET_CTS_TRANSFILEDATA_END);  // closes the file, keeps the state
  EXPECT_EQ(m_session.m_nTransType, PROCESS_TYPE_CLIENT_DOWNDATA);
  Ask(NET_CTS_TRANS_STOP);
  ASSERT_TRUE(m_net.WaitFor(NET_CTS_TRANS_STOP));
  EXPECT_EQ(EndOf(), kStopped);
  EXPECT_LE(m_net.Bodies(NET_STC_TRANSFILEDATA).size(), 17U);
  EXPECT_EQ(m_net.Codes().back(), NET_CTS_TRANS_STOP);
  m_net.m_bRoom = true;
  EXPECT_EQ(AskDownload(0, "file"), kOk);
  EXPECT_EQ(EndOf(2), kOk);
  m_net.m_bRoom = false;
  EXPECT_EQ(AskDownload(0, "file"), kOk);  // and the session ends under this one
}

TEST_F(DownloadSending, SecondDownloadLeavesEveryPacketTrue) {
  const std::string first = PatternBytes(3 << 20, 1), second = PatternBytes(3 << 20, 2);
  WriteWholeFile(m_dir / "a", first);
  WriteWholeFile(m_dir / "b", second);
  HoldDownload("a");
  AskDownload(500, "b");
  m_net.m_bHold = false;
  EndOf(2);
  std::size_t ofSecond = 0;
  for (const std::string& body : m_net.Bodies(NET_STC_TRANSFILEDATA)) {
    const auto at = static_cast<std::size_t>(ReadInt64(body.data()));
    const std::string data = body.substr(kPositionBytes);
    const bool isSecond = second.compare(at, data.size(), data) == 0;
    EXPECT_TRUE(isSecond || first.compare(at, data.size(), data) == 0) << at;
    if (isSecond) ofSecond += data.size();
  }
  EXPECT_EQ(ofSecond, second.size() - 500);
}

TEST_F(DownloadSending, SenderOfAnOldLinkLeavesTheNewOneAlone) {
  WriteWholeFile(m_dir / "file", PatternBytes(3 << 20));
  HoldDownload("file");
  m_session.StopService();
  m_session.m_pTransFile->Close();
  m_session.ResetForLink();
  AskUpload(true, "up");
  m_session.m_bStopTrans = true;
  m_net.m_bHold = false;
  m_session.WaitSenders();
  SendChunk(0, "whole");
  EXPECT_EQ(m_session.m_nTransType, PROCESS_TYPE_CLIENT_UPDATA);
  EXPECT_EQ(ReadWholeFile(m_dir / "up"), "whole");
  EXPECT_EQ(m_net.Bodies(NET_STC_TRANSFILEDATA).size(), 1U);
  EXPECT_EQ(m_net.Codes(), (std::vector<int>{NET_CTS_PREPARETRANS_FILE, NET_CTS_PREPARETRAN_FILE}));
}

}  // namespace
