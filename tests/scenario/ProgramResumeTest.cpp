// What travels when an upload goes on: the bytes are counted on the wire.

#include <cstring>

#include "protocol/MessageCodes.h"
#include "support/Packets.h"
#include "support/Programs.h"
#include "support/Sockets.h"

namespace {

constexpr std::size_t kMiB = 1 << 20;

// Different in every block, so that no block can pass for another.
std::string MeasurementBytes(std::size_t blocks) {
  std::string block = PatternBytes(kMiB, 5);
  std::string bytes;
  bytes.reserve(blocks * kMiB);
  for (std::size_t i = 0; i < blocks; ++i) {
    std::memcpy(block.data(), &i, sizeof i);
    bytes += block;
  }
  return bytes;
}

TEST(ProgramResume, FortyLostRangesOverThreeSegmentsCostTheirOwnBytes) {
  constexpr std::size_t kRanges = 40;
  constexpr std::size_t kRangeBytes = 100000;
  constexpr std::size_t kMissing = kRanges * kRangeBytes;
  const std::size_t bounds[] = {0, 70 * kMiB, 140 * kMiB, 200 * kMiB};
  const std::string whole = MeasurementBytes(200);
  CServerProgram server;
  CTempDirectory local;
  WriteWholeFile(local / "P/Run.tm", whole);
  // The server's copy holds zeros where a range is missing.
  std::string lost = "[Lost_Pos]\r\nnRecordCount=40\r\nnHeadSize=0\r\n", left = lost;
  std::string copy = whole;
  for (std::size_t i = 0; i < kRanges; ++i) {
    const std::size_t at = 1000 + i * 5 * kMiB;
    copy.replace(at, kRangeBytes, kRangeBytes, '\0');
    const std::string key = "lost_info_" + std::to_string(i) + "=";
    lost += key + std::to_string(at) + ",100000\r\n";
    left += key + std::to_string(at + kRangeBytes) + ",0\r\n";
  }
  const char* const segments[] = {"P/Run.tm", "P/Run(1).tm", "P/Run(2).tm"};
  for (std::size_t i = 0; i < 3; ++i) {
    WriteWholeFile(server.ProjectPath(segments[i]),
                   copy.substr(bounds[i], bounds[i + 1] - bounds[i]));
  }
  WriteWholeFile(server.ProjectPath("P/Run.li"), lost);
  WriteWholeFile(server.ProjectPath("P/Run.fi"),
                 "[FileInfo]\r\nFileCount=2\r\nSize1=" + std::to_string(bounds[1]) +
                     "\r\nSize2=" + std::to_string(bounds[2]) + "\r\n");

  const auto put = [&](const std::string& from) {
    CWireTap tap(server.Port(), from);
    EXPECT_EQ(CWorkstation(tap.Port()).Start({"put", local / "P"})->Wait(), 0);
    tap.WaitClosed();
    return tap.FromClient();
  };
  const std::size_t sent = put("127.0.0.2").size();
  EXPECT_GE(sent, kMissing);
  EXPECT_LE(sent, kMissing + kMissing / 100);
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_TRUE(ReadWholeFile(server.ProjectPath(segments[i])) ==
                whole.substr(bounds[i], bounds[i + 1] - bounds[i]));
  }
  EXPECT_EQ(ReadWholeFile(server.ProjectPath("P/Run.li")), left);
  // The one chunk of a second run is the courtesy before leaving, a write to
  // nowhere, which spares the server a wait.
  EXPECT_EQ(BodiesOf(put("127.0.0.3"), NET_CTS_TRANSFILEDATA),
            std::vector<std::string>{Int64(-1) + "x"});
}

}  // namespace
