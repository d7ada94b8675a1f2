// What travels when an upload goes on: the bytes are counted on the wire.

#include <cstdlib>
#include <cstring>
#include <random>

#include "platform/ByteOrder.h"
#include "protocol/DataPacket.h"
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

// Runs a transfer that grows a file, through a tap from one more address each
// time, since the session of a killed client keeps its next link waiting for
// seconds. Kills kqft or, every second time, the server once the file has
// grown beyond some random size; lets the last one end. More with
// KQFT_KILL_ROUNDS.
void KillAgainAndAgain(CServerProgram& server, Arguments command, const std::string& growing,
                       const std::function<void(std::int64_t held, const CWireTap& tap)>& check) {
  const char* more = std::getenv("KQFT_KILL_ROUNDS");
  const int rounds = more != nullptr ? std::atoi(more) : 2;
  static std::mt19937 random(11);
  command.insert(command.begin(), {"--retries", "0"});
  int killed = 0;
  for (int round = 0; round <= rounds; ++round) {
    const std::int64_t held = std::max<std::int64_t>(0, FileSize(growing));
    CWireTap tap(server.Port(), "127.0.1." + std::to_string(round + 1));
    const CWorkstation station(tap.Port());
    const auto kqft = station.Start(command);
    if (round < rounds) {
      const auto moment = held + static_cast<std::int64_t>(random() % (8 * kMiB));
      EXPECT_TRUE(WaitUntil([&] { return FileSize(growing) >= moment || !kqft->IsRunning(); }));
      killed += kqft->IsRunning() ? 1 : 0;
      CProgram& victim = round % 2 == 0 ? *kqft : server.Process();
      victim.Signal(SIGKILL);
      victim.Wait();
      EXPECT_NE(kqft->Wait(), 0) << "a run that was cut";
      if (round % 2 != 0) server.Start();
    } else {
      EXPECT_EQ(kqft->Wait(), 0) << kqft->Error();
    }
    tap.WaitClosed();
    check(held, tap);
  }
  EXPECT_GT(killed, rounds / 2);
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

TEST(ProgramResume, KilledUploadsGoOnWhereTheServersFileEnds) {
  const std::string whole = MeasurementBytes(128);
  CServerProgram server;
  CTempDirectory local;
  WriteWholeFile(local / "P/Run.tm", whole);
  const std::string target = server.ProjectPath("P/Run.tm");
  KillAgainAndAgain(server, {"put", local / "P"}, target, [](std::int64_t, const CWireTap& tap) {
    const auto answers = BodiesOf(tap.FromServer(), NET_CTS_PREPARETRAN_FILE);
    if (answers.empty()) return;
    std::int64_t expected = ReadInt64(answers[0].data() + 4);
    for (const std::string& piece : BodiesOf(tap.FromClient(), NET_CTS_TRANSFILEDATA)) {
      if (ReadInt64(piece.data()) == -1) break;  // the courtesy before leaving
      ASSERT_EQ(ReadInt64(piece.data()), expected);
      expected += std::ssize(piece) - kPositionBytes;
    }
  });
  EXPECT_TRUE(ReadWholeFile(target) == whole);
}

TEST(ProgramResume, KilledDownloadsGoOnWhereTheLocalFileEnds) {
  const std::string whole = MeasurementBytes(128);
  CServerProgram server;
  CTempDirectory local;
  WriteWholeFile(server.ProjectPath("P/Run.tm"), whole);
  const std::string target = local / "P/Run.tm";
  const std::string part = target + "." + std::to_string(whole.size()) + ".part";
  KillAgainAndAgain(server, {"get", "P", "--into", local.Path()}, part,
                    [&](std::int64_t held, const CWireTap& tap) {
                      EXPECT_NE(FileSize(part) < 0, FileSize(target) < 0);
                      const auto pieces = BodiesOf(tap.FromServer(), NET_STC_TRANSFILEDATA);
                      EXPECT_EQ(pieces.empty() ? held : ReadInt64(pieces[0].data()), held);
                    });
  EXPECT_TRUE(ReadWholeFile(target) == whole);
}

}  // namespace
