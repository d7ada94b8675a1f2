// What travels when an upload goes on: the bytes are counted on the wire.

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <random>

#include "net/NetWorkPackHead.h"
#include "platform/ByteOrder.h"
#include "protocol/DataPacket.h"
#include "protocol/MessageCodes.h"
#include "support/Programs.h"
#include "support/WireTap.h"

namespace fs = std::filesystem;

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

// The bodies of all packets of a code, in a stream that may end anywhere.
std::vector<std::string> BodiesOf(const std::string& stream, int code) {
  std::vector<std::string> bodies;
  std::size_t at = 0;
  while (at + kPackHeadBytes <= stream.size()) {
    const std::size_t length = CNetWorkPackHead::BodyLength(stream.data() + at);
    const bool wanted = CNetWorkPackHead::Code(stream.data() + at) == static_cast<unsigned>(code);
    at += kPackHeadBytes;
    if (at + length > stream.size()) break;
    if (wanted) bodies.push_back(stream.substr(at, length));
    at += length;
  }
  return bodies;
}

std::unique_ptr<CProgram> StartPut(const CWireTap& tap, const std::string& directory,
                                   const CTempDirectory& logs) {
  return std::make_unique<CProgram>(
      KQFT_PROGRAM,
      std::vector<std::string>{"--server", "127.0.0.1:" + std::to_string(tap.Port()), "--log-dir",
                               logs.Path(), "put", "--retries", "0", directory});
}

std::size_t SizeOf(const std::string& path) {
  std::error_code error;
  const std::uintmax_t size = fs::file_size(path, error);
  return error ? 0 : static_cast<std::size_t>(size);
}

// How many times to kill; more with KQFT_KILL_ROUNDS.
int KillRounds() {
  const char* rounds = std::getenv("KQFT_KILL_ROUNDS");
  return rounds != nullptr ? std::atoi(rounds) : 4;
}

}  // namespace

TEST(ProgramResume, FortyLostRangesOverThreeSegmentsCostTheirOwnBytes) {
  constexpr std::size_t kRanges = 40;
  constexpr std::size_t kRangeBytes = 100000;
  const std::vector<std::size_t> bounds = {0, 70 * kMiB, 140 * kMiB, 200 * kMiB};
  const std::string whole = MeasurementBytes(200);
  CServerProgram server;
  CTempDirectory local;
  CTempDirectory logs;
  WriteWholeFile(local / "P/Run.tm", whole);
  // The server's copy holds zeros where a range is missing.
  std::string lost = "[Lost_Pos]\r\nnRecordCount=40\r\nnHeadSize=0\r\n";
  std::string copy = whole;
  for (std::size_t i = 0; i < kRanges; ++i) {
    const std::size_t at = 1000 + i * 5 * kMiB;
    copy.replace(at, kRangeBytes, kRangeBytes, '\0');
    lost += "lost_info_" + std::to_string(i) + "=" + std::to_string(at) + ",100000\r\n";
  }
  const std::vector<std::string> segments = {"P/Run.tm", "P/Run(1).tm", "P/Run(2).tm"};
  for (std::size_t i = 0; i < 3; ++i) {
    WriteWholeFile(server.ProjectPath(segments[i]),
                   copy.substr(bounds[i], bounds[i + 1] - bounds[i]));
  }
  WriteWholeFile(server.ProjectPath("P/Run.li"), lost);
  WriteWholeFile(server.ProjectPath("P/Run.fi"),
                 "[FileInfo]\r\nFileCount=2\r\nSize1=" + std::to_string(bounds[1]) +
                     "\r\nSize2=" + std::to_string(bounds[2]) + "\r\n");

  CWireTap first(server.Port(), "127.0.0.2");
  EXPECT_EQ(StartPut(first, local / "P", logs)->Wait(), 0);
  first.WaitClosed();
  constexpr std::size_t kMissing = kRanges * kRangeBytes;
  EXPECT_GE(first.FromClient().size(), kMissing);
  EXPECT_LE(first.FromClient().size(), kMissing + kMissing / 100);
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_TRUE(ReadWholeFile(server.ProjectPath(segments[i])) ==
                whole.substr(bounds[i], bounds[i + 1] - bounds[i]));
  }
  const std::string rest = ReadWholeFile(server.ProjectPath("P/Run.li"));
  for (std::size_t i = 0; i < kRanges; ++i) {
    const std::string record = "lost_info_" + std::to_string(i) + "=" +
                               std::to_string(1000 + i * 5 * kMiB + kRangeBytes) + ",0\r\n";
    EXPECT_NE(rest.find(record), std::string::npos) << record;
  }

  CWireTap second(server.Port(), "127.0.0.3");
  EXPECT_EQ(StartPut(second, local / "P", logs)->Wait(), 0);
  second.WaitClosed();
  // The one chunk left is the courtesy before leaving, a write to nowhere.
  for (const std::string& body : BodiesOf(second.FromClient(), NET_CTS_TRANSFILEDATA)) {
    EXPECT_EQ(ReadInt64(body.data()), -1);
  }
}

TEST(ProgramResume, KilledUploadsGoOnWhereTheServersFileEnds) {
  constexpr std::size_t kBlocks = 256;
  const std::string whole = MeasurementBytes(kBlocks);
  CServerProgram server;
  CTempDirectory local;
  CTempDirectory logs;
  WriteWholeFile(local / "P/Run.tm", whole);
  const std::string target = server.ProjectPath("P/Run.tm");
  const int rounds = KillRounds();
  std::mt19937 random(11);
  int killed = 0;
  for (int round = 0; round <= rounds; ++round) {
    // An address of its own each time: the session of a killed client keeps
    // its next link waiting for seconds.
    CWireTap tap(server.Port(), "127.0.1." + std::to_string(round + 1));
    const auto put = StartPut(tap, local / "P", logs);
    if (round < rounds) {
      const std::size_t moment = SizeOf(target) + random() % (kBlocks * kMiB / 32);
      EXPECT_TRUE(WaitUntil([&] { return SizeOf(target) >= moment || !put->IsRunning(); }));
      CProgram& victim = round % 2 == 0 ? *put : server.Process();
      if (put->IsRunning()) ++killed;
      victim.Signal(kKill);
      victim.Wait();
      EXPECT_NE(put->Wait(), 0) << "a run that was cut";
      if (round % 2 != 0) server.Restart();
    } else {
      EXPECT_EQ(put->Wait(), 0) << put->Error();
    }
    tap.WaitClosed();
    const auto answers = BodiesOf(tap.FromServer(), NET_CTS_PREPARETRAN_FILE);
    const auto pieces = BodiesOf(tap.FromClient(), NET_CTS_TRANSFILEDATA);
    if (answers.empty() || pieces.empty()) continue;
    std::int64_t expected = ReadInt64(answers[0].data() + 4);
    for (const std::string& piece : pieces) {
      if (ReadInt64(piece.data()) == -1) break;  // the courtesy before leaving
      ASSERT_EQ(ReadInt64(piece.data()), expected) << "round " << round;
      expected += static_cast<std::int64_t>(piece.size()) - kPositionBytes;
    }
  }
  EXPECT_GT(killed, 0);
  EXPECT_TRUE(ReadWholeFile(target) == whole);
}
