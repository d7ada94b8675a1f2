// What travels when an upload goes on: the bytes are counted on the wire.

#include <string_view>

#include "programs/ExitStatus.h"
#include "protocol/MessageCodes.h"
#include "support/Packets.h"
#include "support/Programs.h"
#include "support/TestServer.h"
#include "support/TestSockets.h"

namespace {

constexpr std::size_t kMiB = 1 << 20;

using ProgramResume = CServerTest;

TEST_F(ProgramResume, FortyLostRangesOverThreeSegmentsCostTheirOwnBytes) {
  constexpr std::size_t kRanges = 40;
  constexpr std::size_t kRangeBytes = 100000;
  constexpr std::size_t kMissing = kRanges * kRangeBytes;
  const auto range = [](std::size_t i) { return 1000 + i * 5 * kMiB; };
  const std::size_t bounds[] = {0, 70 * kMiB, 140 * kMiB, 200 * kMiB};
  const std::string block = PatternBytes(kMiB - 4);
  std::string whole;
  for (int i = 0; i < 200; ++i) whole += Int32(i) + block;  // no block passes for another
  CScopedSockets sockets;
  ASSERT_TRUE(m_server.Init(0));
  const CTempDirectory local;
  WriteWholeFile(local / "P/Run.tm", whole);
  std::string lost = "[Lost_Pos]\r\nnRecordCount=40\r\nnHeadSize=0\r\n", left = lost;
  for (std::size_t i = 0; i < kRanges; ++i) {
    const std::size_t at = range(i);
    const std::string key = "lost_info_" + std::to_string(i) + "=";
    lost += key + std::to_string(at) + ",100000\r\n";
    left += key + std::to_string(at + kRangeBytes) + ",0\r\n";
  }
  const char* const segments[] = {"P/Run.tm", "P/Run(1).tm", "P/Run(2).tm"};
  const auto segment = [&](std::size_t i) {
    return std::string_view(whole).substr(bounds[i], bounds[i + 1] - bounds[i]);
  };
  for (std::size_t i = 0, next = 0; i < 3; ++i) {
    std::string copy(segment(i));  // with zeros where a range is missing
    for (; next < kRanges && range(next) < bounds[i + 1]; ++next) {
      copy.replace(range(next) - bounds[i], kRangeBytes, kRangeBytes, '\0');
    }
    WriteWholeFile(m_dir / segments[i], copy);
  }
  WriteWholeFile(m_dir / "P/Run.li", lost);
  WriteWholeFile(m_dir / "P/Run.fi",
                 "[FileInfo]\r\nFileCount=2\r\nSize1=" + std::to_string(bounds[1]) +
                     "\r\nSize2=" + std::to_string(bounds[2]) + "\r\n");

  const auto put = [&](const std::string& from) {
    sockets.Follow(SLinkPlan());
    SOptions options;
    options.m_place = {"127.0.0.1", m_server.Port(), from, local.Path()};
    options.m_strProject = "P";
    options.m_vecPaths = {local / "P"};
    EXPECT_EQ(RunKqft("put", options), kExitDone);
    return sockets.Carried(EDirection::kSent);
  };
  const std::size_t sent = put("127.0.0.2").size();
  EXPECT_GE(sent, kMissing);
  EXPECT_LE(sent, kMissing + kMissing / 100);
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_TRUE(ReadWholeFile(m_dir / segments[i]) == segment(i));
  }
  EXPECT_EQ(ReadWholeFile(m_dir / "P/Run.li"), left);
  // The one chunk of a second run is the courtesy before leaving, a write to
  // nowhere, which spares the server a wait.
  const std::string again = put("127.0.0.3");
  EXPECT_NE(again.find(MakePacket(NET_CTS_TRANSFILEDATA, Int64(-1) + "x")), std::string::npos);
  EXPECT_LT(again.size(), kRangeBytes / 100);
}

}  // namespace
