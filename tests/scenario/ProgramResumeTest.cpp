// What travels when an upload goes on: the bytes are counted on the wire.

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
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

std::unique_ptr<CProgram> StartKqft(const CWireTap& tap, const CTempDirectory& logs,
                                    const std::vector<std::string>& command) {
  std::vector<std::string> arguments = {"--server",  "127.0.0.1:" + std::to_string(tap.Port()),
                                        "--log-dir", logs.Path(),
                                        "--retries", "0"};
  arguments.insert(arguments.end(), command.begin(), command.end());
  return std::make_unique<CProgram>(KQFT_PROGRAM, arguments);
}

std::size_t SizeOf(const std::string& path) {
  std::error_code error;
  const std::uintmax_t size = fs::file_size(path, error);
  return error ? 0 : static_cast<std::size_t>(size);
}

// Kills kqft or, every second time, the server once the file has grown beyond
// some random size. Returns false when kqft was quicker.
bool KillMidway(int round, const std::string& growing, std::size_t step, CProgram& kqft,
                CServerProgram& server) {
  static std::mt19937 random(11);
  const std::size_t moment = SizeOf(growing) + random() % step;
  EXPECT_TRUE(WaitUntil([&] { return SizeOf(growing) >= moment || !kqft.IsRunning(); }));
  const bool inTime = kqft.IsRunning();
  CProgram& victim = round % 2 == 0 ? kqft : server.Process();
  victim.Signal(kKill);
  victim.Wait();
  EXPECT_NE(kqft.Wait(), 0) << "a run that was cut";
  if (round % 2 != 0) server.Restart();
  return inTime;
}

// How many times to kill; more with KQFT_KILL_ROUNDS.
int KillRounds() {
  const char* rounds = std::getenv("KQFT_KILL_ROUNDS");
  return rounds != nullptr ? std::atoi(rounds) : 2;
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
  EXPECT_EQ(StartKqft(first, logs, {"put", local / "P"})->Wait(), 0);
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
  EXPECT_EQ(StartKqft(second, logs, {"put", local / "P"})->Wait(), 0);
  second.WaitClosed();
  // The one chunk left is the courtesy before leaving, a write to nowhere.
  for (const std::string& body : BodiesOf(second.FromClient(), NET_CTS_TRANSFILEDATA)) {
    EXPECT_EQ(ReadInt64(body.data()), -1);
  }
}

TEST(ProgramResume, KilledUploadsGoOnWhereTheServersFileEnds) {
  constexpr std::size_t kBlocks = 128;
  const std::string whole = MeasurementBytes(kBlocks);
  CServerProgram server;
  CTempDirectory local;
  CTempDirectory logs;
  WriteWholeFile(local / "P/Run.tm", whole);
  const std::string target = server.ProjectPath("P/Run.tm");
  const int rounds = KillRounds();
  int killed = 0;
  for (int round = 0; round <= rounds; ++round) {
    // An address of its own each time: the session of a killed client keeps
    // its next link waiting for seconds.
    CWireTap tap(server.Port(), "127.0.1." + std::to_string(round + 1));
    const auto put = StartKqft(tap, logs, {"put", local / "P"});
    if (round == rounds) {
      EXPECT_EQ(put->Wait(), 0) << put->Error();
    } else if (KillMidway(round, target, kBlocks * kMiB / 16, *put, server)) {
      ++killed;
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
  EXPECT_GT(killed, rounds / 2);
  std::cout << "killed " << killed << " of " << rounds << " runs midway\n";
  EXPECT_TRUE(ReadWholeFile(target) == whole);
}

TEST(ProgramResume, KilledDownloadsGoOnWhereTheLocalFileEnds) {
  constexpr std::size_t kBlocks = 128;
  const std::string whole = MeasurementBytes(kBlocks);
  CServerProgram server;
  CTempDirectory local;
  CTempDirectory logs;
  WriteWholeFile(server.ProjectPath("P/Run.tm"), whole);
  const std::string target = local / "P/Run.tm";
  const std::string part = target + "." + std::to_string(whole.size()) + ".part";
  const int rounds = KillRounds();
  int killed = 0;
  for (int round = 0; round <= rounds; ++round) {
    const std::size_t held = SizeOf(part);
    CWireTap tap(server.Port(), "127.0.2." + std::to_string(round + 1));
    const auto get = StartKqft(tap, logs, {"get", "P", "--into", local.Path()});
    if (round == rounds) {
      EXPECT_EQ(get->Wait(), 0) << get->Error();
    } else if (KillMidway(round, part, kBlocks * kMiB / 16, *get, server)) {
      ++killed;
    }
    tap.WaitClosed();
    const auto pieces = BodiesOf(tap.FromServer(), NET_STC_TRANSFILEDATA);
    if (!pieces.empty()) {
      EXPECT_EQ(ReadInt64(pieces[0].data()), static_cast<std::int64_t>(held)) << "round " << round;
    }
  }
  EXPECT_GT(killed, rounds / 2);
  std::cout << "killed " << killed << " of " << rounds << " runs midway\n";
  EXPECT_TRUE(ReadWholeFile(target) == whole);
  EXPECT_FALSE(fs::exists(part));
}
