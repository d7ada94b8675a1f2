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

// The end code of a download, once it has come.
std::string EndOf(SSessionBench& bench) {
  EXPECT_TRUE(bench.m_net.WaitFor(NET_STC_TRANSFILEDATA_END) && bench.WaitIdle());
  return bench.m_net.LastBody(NET_STC_TRANSFILEDATA_END);
}

// What the data packets carry, checked to follow one another.
std::string Received(SSessionBench& bench, std::int64_t position) {
  std::string all;
  for (const std::string& body : bench.m_net.Bodies(NET_STC_TRANSFILEDATA)) {
    EXPECT_EQ(body.substr(0, 8), Int64(position + static_cast<std::int64_t>(all.size())));
    all += body.substr(kPositionBytes);
  }
  return all;
}

TEST(DownloadSending, PacketsCarryTheFileFromTheGivenPosition) {
  SSessionBench bench;
  const std::string content = PatternBytes(1048577);
  WriteWholeFile(bench.m_dir / "file", content);
  EXPECT_EQ(bench.AskDownload(1048577, "file"), kOk);  // nothing left to send
  EXPECT_EQ(EndOf(bench), kOk);
  EXPECT_EQ(bench.AskDownload(0, "file"), kOk);
  ASSERT_TRUE(bench.m_net.WaitFor(NET_STC_TRANSFILEDATA_END, 2));
  EXPECT_EQ(Received(bench, 0), content);
  const auto packets = bench.m_net.Bodies(NET_STC_TRANSFILEDATA);
  ASSERT_EQ(packets.size(), 18U);
  EXPECT_EQ(packets[15].size(), 65516U);
  EXPECT_EQ(packets[16].size(), 456U);

  const std::string path = bench.m_dir / "file";
  EXPECT_EQ(bench.Ask(NET_CTS_REQUEST_SERVERFILESIZE, path + "||none|" + path), Int64(2097154));
  EXPECT_EQ(bench.Ask(NET_CTS_REQUEST_SERVERFILESIZE, path + "|"), Int64(1048577));
}

TEST(DownloadSending, PositionsGoBeyondFourGibibytesBothWays) {
  SSessionBench bench;
  const std::string piece = PatternBytes(70000);
  for (const std::int64_t position : {(1LL << 31) - 100, (1LL << 32) - 100}) {
    bench.AskUpload(false, "sparse");
    bench.SendChunk(position, piece);
    bench.Ask(NET_CTS_TRANSFILEDATA_END);
  }
  bench.AskDownload((1LL << 32) - 100, "sparse");
  EXPECT_EQ(EndOf(bench), kOk);
  EXPECT_EQ(Received(bench, (1LL << 32) - 100), piece);
  EXPECT_EQ(bench.Ask(NET_CTS_REQUEST_SERVERFILESIZE, bench.m_dir / "sparse"),
            Int64((1LL << 32) - 100 + 70000));
}

TEST(DownloadSending, FailuresAreAnsweredOrEndTheFile) {
  SSessionBench bench;
  WriteWholeFile(bench.m_dir / "file", "content");
  EXPECT_EQ(bench.AskDownload(0, "none"), Int32(ERROR_CODE_SERVER_OPENFILE));
  EXPECT_EQ(bench.AskDownload(0, ""), Int32(ERROR_CODE_SERVER_OPENFILE));  // a directory
  bench.AskUpload(true, "up");
  EXPECT_EQ(bench.AskDownload(0, "file"), Int32(ERROR_CODE_CLIENT_UPDATA));
  bench.Ask(NET_CTS_TRANSFILEDATA_END);
  bench.m_net.m_bRefuseData = true;
  EXPECT_EQ(bench.AskDownload(0, "file"), kOk);
  EXPECT_EQ(EndOf(bench), kStopped);
  bench.m_net.m_bRefuseData = false;
  EXPECT_EQ(bench.AskDownload(-5, "file"), kOk);  // sent from the start all the same
  ASSERT_TRUE(bench.m_net.WaitFor(NET_STC_TRANSFILEDATA_END, 2));
  EXPECT_EQ(Received(bench, -5), "content");

  SSessionBench threadless(CFaultPlan().NoThreads());
  WriteWholeFile(threadless.m_dir / "file", "content");
  EXPECT_EQ(threadless.AskDownload(0, "file"), Int32(ERROR_CODE_SERVER_OPENFILE));
  EXPECT_EQ(threadless.m_session.m_nTransType, PROCESS_TYPE_NONE);
  EXPECT_FALSE(threadless.m_session.m_pTransFile->IsOpen());
}

TEST(DownloadSending, StopIsAcknowledgedAfterTheBlockInHand) {
  SSessionBench bench;
  WriteWholeFile(bench.m_dir / "file", PatternBytes(5 << 20));
  bench.m_net.m_bRoom = false;  // a client that does not read
  EXPECT_EQ(bench.AskDownload(0, "file"), kOk);
  EXPECT_EQ(bench.AskUpload(true, "up"), Int32(ERROR_CODE_SERVER_DOWNDATA) + Int64(0));
  EXPECT_EQ(bench.Ask(NET_CTS_GETLOSTINFO, "file"), Int32(ERROR_CODE_TRANS_BUSY));
  bench.Ask(NET_CTS_TRANSFILEDATA_END);  // closes the file, keeps the state
  EXPECT_EQ(bench.m_session.m_nTransType, PROCESS_TYPE_CLIENT_DOWNDATA);
  bench.Ask(NET_CTS_TRANS_STOP);
  ASSERT_TRUE(bench.m_net.WaitFor(NET_CTS_TRANS_STOP) && bench.WaitIdle());
  EXPECT_EQ(EndOf(bench), kStopped);
  EXPECT_LE(bench.m_net.Bodies(NET_STC_TRANSFILEDATA).size(), 17U);
  EXPECT_EQ(bench.m_net.Codes().back(), NET_CTS_TRANS_STOP);
  EXPECT_EQ(bench.AskDownload(0, "file"), kOk);  // and the session ends under this one
}

TEST(DownloadSending, SecondDownloadLeavesEveryPacketTrue) {
  SSessionBench bench;
  const std::string first = PatternBytes(3 << 20, 1), second = PatternBytes(3 << 20, 2);
  WriteWholeFile(bench.m_dir / "a", first);
  WriteWholeFile(bench.m_dir / "b", second);
  bench.m_net.m_bHold = true;
  bench.AskDownload(0, "a");
  while (!bench.m_net.m_bHeld) std::this_thread::yield();
  bench.AskDownload(500, "b");
  bench.m_net.m_bHold = false;
  ASSERT_TRUE(bench.m_net.WaitFor(NET_STC_TRANSFILEDATA_END, 2) && bench.WaitIdle());
  std::size_t ofSecond = 0;
  for (const std::string& body : bench.m_net.Bodies(NET_STC_TRANSFILEDATA)) {
    const auto at = static_cast<std::size_t>(ReadInt64(body.data()));
    const std::string data = body.substr(kPositionBytes);
    const bool isSecond = second.compare(at, data.size(), data) == 0;
    EXPECT_TRUE(isSecond || first.compare(at, data.size(), data) == 0) << at;
    if (isSecond) ofSecond += data.size();
  }
  EXPECT_EQ(ofSecond, second.size() - 500);
}

TEST(DownloadSending, SenderOfAnOldLinkLeavesTheNewOneAlone) {
  SSessionBench bench;
  WriteWholeFile(bench.m_dir / "file", PatternBytes(3 << 20));
  bench.m_net.m_bHold = true;
  bench.AskDownload(0, "file");
  while (!bench.m_net.m_bHeld) std::this_thread::yield();
  bench.m_session.StopService();
  bench.m_session.m_pTransFile->Close();
  bench.m_session.ResetForLink();
  bench.AskUpload(true, "up");
  bench.m_session.m_bStopTrans = true;
  bench.m_net.m_bHold = false;
  bench.m_session.WaitSenders();
  bench.SendChunk(0, "whole");
  EXPECT_EQ(bench.m_session.m_nTransType, PROCESS_TYPE_CLIENT_UPDATA);
  EXPECT_EQ(ReadWholeFile(bench.m_dir / "up"), "whole");
  EXPECT_EQ(bench.m_net.Bodies(NET_STC_TRANSFILEDATA).size(), 1U);
  EXPECT_EQ(bench.m_net.Codes(),
            (std::vector<int>{NET_CTS_PREPARETRANS_FILE, NET_CTS_PREPARETRAN_FILE}));
}

}  // namespace
