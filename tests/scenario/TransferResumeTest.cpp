// What becomes of an upload that goes on: the bytes that travel, counted on the
// wire, and those that lie on the server in the end.

#include <atomic>
#include <filesystem>
#include <functional>
#include <string_view>
#include <thread>

#include "protocol/MessageCodes.h"
#include "protocol/Messages.h"
#include "protocol/ResultCodes.h"
#include "support/HostFiles.h"
#include "support/Packets.h"
#include "support/Programs.h"
#include "support/TestServer.h"
#include "support/TestSockets.h"
#include "transfer/ProjectClient.h"
#include "transfer/ProjectPath.h"

namespace fs = std::filesystem;

namespace {

const std::string kHead = "[Lost_Pos]\r\nnRecordCount=1\r\n";
const std::string kRange = kHead + "lost_info_0=30000,100\r\n";

class TransferResume : public CServerTest {
 protected:
  // Each comes from an address of its own.
  CProjectClient Client(ITransferObserver* observer = nullptr) {
    return CProjectClient({"127.0.0.1", m_nPort > 0 ? m_nPort : m_server.Port(),
                           "127.0.1." + std::to_string(++m_nRuns), m_logs.Path()},
                          observer);
  }
  bool Put(const std::string& directory, const std::string& project) {
    SPutRequest request;
    request.m_strProject = project;
    request.m_vecPaths = {directory};
    request.m_nRetries = 0;
    const STransferResult put = Client().Put(request);
    std::string why = put.m_strWhy + put.m_strInventory;
    for (const STransferItem& item : put.m_vecItems) why += item.m_strWhy;
    if (!put.IsDone()) std::cout << "not done: " << why << "\n";
    return put.IsDone();
  }

  const CTempDirectory m_logs;
  const CTempDirectory m_local;
  int m_nRuns = 0;
  int m_nPort = 0;  // of another server
};

// Cuts one file off behind its confirmed end, once.
class CLosingServer : public CTestServer {
 public:
  using CTestServer::CTestServer;
  ~CLosingServer() override { Stop(); }
  void OnUploaded(const STransferFacts& file) override {
    if (file.m_strPath.ends_with("b.txt") && m_nStored++ == 0) fs::resize_file(m_strFile, 1);
  }
  void OnDownloaded(const STransferFacts&) override {
    if (m_nSent++ == 0 && m_onFirstSent) m_onFirstSent();
  }
  std::string m_strFile;
  std::atomic<int> m_nStored = 0, m_nSent = 0;
  std::function<void()> m_onFirstSent;
};

TEST_F(TransferResume, AFileThatIsShorterThanItWasSentIsNotWhole) {
  const CTempDirectory dir;
  CLosingServer server(dir);
  server.m_strFile = dir / "P/b.txt";
  ASSERT_TRUE(server.Init(0));
  m_nPort = server.Port();
  for (const char* name : {"a.txt", "b.txt", "c.txt"})
    WriteWholeFile(m_local / ("P/" + std::string(name)), name);
  EXPECT_FALSE(Put(m_local / "P", "P"));
  EXPECT_TRUE(Put(m_local / "P", "P"));
  for (const char* name : {"a.txt", "b.txt", "c.txt"}) {
    EXPECT_EQ(ReadWholeFile(dir / ("P/" + std::string(name))), name);
  }
}

TEST_F(TransferResume, FortyLostRangesOverThreeSegmentsCostTheirOwnBytes) {
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
  WriteWholeFile(m_local / "P/Run.tm", whole);
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

  const auto put = [&] {
    sockets.Follow(SLinkPlan());
    EXPECT_TRUE(Put(m_local / "P", "P"));
    return sockets.Carried(EDirection::kSent);
  };
  const std::size_t sent = put().size();
  EXPECT_GE(sent, kMissing);
  EXPECT_LE(sent, kMissing + kMissing / 100);
  for (std::size_t i = 0; i < 3; ++i) {
    EXPECT_TRUE(ReadWholeFile(m_dir / segments[i]) == segment(i));
  }
  EXPECT_EQ(ReadWholeFile(m_dir / "P/Run.li"), left);
  EXPECT_LT(put().size(), kRangeBytes / 10);
}

// Side files of the local project, of the server, of both; what they tell may
// be of another state of the recording than the server holds.
TEST_F(TransferResume, SideFilesNeverMakeAHoleInARecording) {
  using Tree = std::map<std::string, std::string>;
  const std::string whole = PatternBytes(120000, 4),
                    sizes = "[FileInfo]\r\nFileCount=2\r\nSize1=40000\r\nSize2=80000\r\n";
  const std::string twoRanges =
      "[Lost_Pos]\r\nnRecordCount=2\r\nlost_info_0=30000,100\r\nlost_info_1=70000,9\r\n";
  const std::string withHole = std::string(whole).replace(30000, 100, 100, '\0');
  const Tree chain = {{"Run.tm", withHole.substr(0, 40000)},
                      {"Run(1).tm", whole.substr(40000, 40000)},
                      {"Run(2).tm", whole.substr(80000)},
                      {"Run.li", twoRanges},
                      {"Run.fi", sizes}};
  const struct {
    const char* m_strName;
    Tree m_server, m_local;
  } shapes[] = {
      {"brought along", {}, {{"Run.tm", whole}, {"Run.li", kRange}}},
      {"alone there", {{"Run.li", kRange}}, {{"Run.tm", whole}}},
      {"on both sides", {{"Run.li", kRange}}, {{"Run.tm", whole}, {"Run.li", kRange}}},
      {"behind what is held",
       {{"Run.tm", whole.substr(0, 20000)}, {"Run.li", kRange}},
       {{"Run.tm", whole}}},
      {"in what is held",
       {{"Run.tm", withHole.substr(0, 50000)}, {"Run.li", kRange}},
       {{"Run.tm", whole}, {"Run.li", kRange}}},
      {"behind a head",
       {{"Run.tm", whole.substr(0, 30000)}, {"Run.li", kRange + "nHeadSize=16\r\n"}},
       {{"Run.tm", whole}}},
      {"segments, brought along",
       {},
       {{"Run.tm", whole}, {"Run.li", twoRanges}, {"Run.fi", sizes}}},
      {"segments, alone there", {{"Run.li", twoRanges}, {"Run.fi", sizes}}, {{"Run.tm", whole}}},
      {"segments, the ranges at their begins",
       {{"Run.li", kHead + "lost_info_0=40000,100\r\n"}, {"Run.fi", sizes}},
       {{"Run.tm", whole}}},
      {"segments that were fetched", {}, chain},
      {"segments, half of one",
       {{"Run.tm", whole.substr(0, 100)}, {"Run.li", twoRanges}, {"Run.fi", sizes}},
       chain}};
  ASSERT_TRUE(m_server.Init(0));
  for (const auto& [name, there, here] : shapes) {
    const std::string project = "P" + std::to_string(m_nRuns);
    for (const auto& [file, content] : there)
      WriteWholeFile(m_dir / (project + "/" + file), content);
    std::string from = m_local / project;
    for (const auto& [file, content] : here) WriteWholeFile(from + "/" + file, content);
    if (std::string(name) == "segments that were fetched") {
      for (const auto& [file, content] : here) WriteWholeFile(m_dir / ("G/" + file), content);
      SGetRequest request;
      request.m_strProject = "G";
      request.m_strInto = m_local.Path();
      EXPECT_TRUE(Client().Get(request).IsDone());
      from = m_local / "G";
    }
    for (const char* time : {"first", "second"}) {
      EXPECT_TRUE(Put(from, project)) << name << ", " << time;
      for (const auto& [file, content] : here) {
        EXPECT_TRUE(ReadWholeFile(m_dir / (project + "/" + file)) == content)
            << name << ", " << time << ": " << file;
      }
    }
  }
}

TEST_F(TransferResume, AGetLooksAtEachFileOnceAndStaysInItsDirectories) {
  constexpr int kFiles = 60;  // more than are opened ahead
  const CTempDirectory dir, outside;
  CLosingServer server(dir);
  for (int i = 0; i < kFiles; ++i) WriteWholeFile(dir / ("P/sub/" + std::to_string(i)), "x");
  ASSERT_TRUE(server.Init(0));
  m_nPort = server.Port();
  SGetRequest request;
  request.m_strProject = "P";
  request.m_nRetries = 0;
  request.m_strInto = m_local / "once";
  m_system.Follow(CFaultPlan().Below(request.m_strInto));
  EXPECT_TRUE(Client().Get(request).IsDone());
  EXPECT_EQ(ReadTree(m_local / "once/P"), ReadTree(dir / "P"));
  for (const EOperation each : {EOperation::kOpen, EOperation::kQuery, EOperation::kRename}) {
    EXPECT_LT(m_system.Calls(each), kFiles + kFiles / 10);
  }
  EXPECT_LT(m_system.Calls(EOperation::kOpenDirectory), kFiles / 10);

  if (!MakeLink(outside.Path(), m_local / "link")) return;
  server.m_nSent = 0;
  server.m_onFirstSent = [&] {
    fs::rename(m_local / "P/sub", m_local / "away");
    fs::rename(m_local / "link", m_local / "P/sub");
  };
  request.m_strInto = m_local.Path();
  EXPECT_FALSE(Client().Get(request).IsDone());
  EXPECT_TRUE(fs::is_empty(outside.Path()));
  EXPECT_FALSE(fs::is_empty(m_local / "away"));
}

TEST_F(TransferResume, WhatIsMissingOfARecordingThatFailedStaysKnown) {
  const std::string whole = PatternBytes(50000);
  WriteWholeFile(m_local / "P/Run.tm", whole);
  WriteWholeFile(m_local / "P/Run.li", "[Lost_Pos]\r\nnRecordCount=0\r\n");
  WriteWholeFile(m_local / "P/a.dat", "new");
  WriteWholeFile(m_dir / "P/Run.tm", std::string(whole).replace(30000, 100, 100, '\0'));
  WriteWholeFile(m_dir / "P/Run.li", kRange);
  ASSERT_TRUE(m_server.Init(0));
  // Files that cannot be read here lose nothing there.
  for (const char* file : {"P/Run.tm", "P/a.dat"}) {
    m_system.Follow(
        CFaultPlan().FailFrom(EOperation::kOpen, 1, ESystemError::kAccess).Below(m_local / file));
    EXPECT_FALSE(Put(m_local / "P", "P"));
    const bool known = file == std::string("P/Run.tm");
    EXPECT_EQ(ReadWholeFile(m_dir / "P/Run.li") == kRange, known);
    EXPECT_EQ(ReadWholeFile(m_dir / "P/a.dat"), "new");
    WriteWholeFile(m_local / "P/a.dat", "newer");
  }
  EXPECT_TRUE(ReadWholeFile(m_dir / "P/Run.tm") == whole);
}

// Looks whether progress falls back, and acts at the first one of a second try.
struct CProgressWatch : ITransferObserver {
  void OnProgress(const STransferProgress& now) override {
    EXPECT_TRUE(now.m_llDone >= m_last.m_llDone && now.m_nFilesDone >= m_last.m_nFilesDone);
    m_last = now;
    if (m_bRetried && m_act) std::thread(m_act).join();
  }
  void OnRetrying(std::size_t, int, const std::string&) override { m_bRetried = true; }

  STransferProgress m_last;
  bool m_bRetried = false;
  std::function<void()> m_act;
};

struct CRetryCount : ITransferObserver {
  void OnRetrying(std::size_t files, int, const std::string& why) override {
    m_nRetries += files > 0 ? 1 : 0;
    if (files > 0) m_strWhy = why;
  }
  int m_nRetries = 0;
  std::string m_strWhy;
};

TEST_F(TransferResume, ProgressNeverFallsBackAndACancelledPutGoesOn) {
  const std::map<std::string, std::string> files = {{"P/a.dat", PatternBytes(2 * kMiB)},
                                                    {"P/b.dat", PatternBytes(4 * kMiB, 2)},
                                                    {"P/z.tm", PatternBytes(16 * kMiB, 3)}};
  for (const auto& [name, content] : files) WriteWholeFile(m_local / name, content);
  CScopedSockets sockets;
  sockets.Follow({3 * kMiB});  // cut in the second file, which is sent again
  ASSERT_TRUE(m_server.Init(0));
  CProgressWatch watch;
  CProjectClient client = Client(&watch);
  watch.m_act = [&] { client.Cancel(); };
  SPutRequest request;
  request.m_vecPaths = {m_local / "P"};
  EXPECT_TRUE(client.Put(request).m_bCancelled);
  EXPECT_TRUE(watch.m_bRetried);
  EXPECT_GT(watch.m_last.m_llDone, 2 * kMiB);
  watch.m_bRetried = false;
  watch.m_last = STransferProgress();
  EXPECT_TRUE(client.Put(request).IsDone());
  for (const auto& [name, content] : files) EXPECT_TRUE(ReadWholeFile(m_dir / name) == content);
}

// What a full disk refuses has been sent all the same.
TEST_F(TransferResume, AFullServerEndsAPutThatFailedTwiceAtOneLength) {
  WriteWholeFile(m_local / "P/a.dat", PatternBytes(16 * kMiB));
  WriteWholeFile(m_local / "P/z.tm", PatternBytes(16 * kMiB));
  ASSERT_TRUE(m_server.Init(0));
  m_system.Follow(CFaultPlan().ClockFaster(20).DiskFullAfter(20 * kMiB));
  CRetryCount count;
  SPutRequest request;
  request.m_vecPaths = {m_local / "P"};
  request.m_nRetries = 10;
  const STransferResult put = Client(&count).Put(request);
  EXPECT_EQ(count.m_nRetries, 1);
  EXPECT_EQ(put.m_vecItems.at(1).m_nCode, ERROR_CODE_SERVER_WRITE);
  EXPECT_TRUE(put.m_vecItems.at(0).m_bDone && put.m_vecItems.at(1).m_bFinal);
  EXPECT_NE(count.m_strWhy.find("P/z.tm: "), std::string::npos) << count.m_strWhy;
}

TEST_F(TransferResume, VerifyReadsOnAfterACutAndACancelledOneProvesNothing) {
  WriteWholeFile(m_local / "P/a.dat", PatternBytes(8 * kMiB));
  WriteWholeFile(m_local / "P/b", "b");
  CScopedSockets sockets;
  ASSERT_TRUE(m_server.Init(0));
  ASSERT_TRUE(Put(m_local / "P", "P"));
  sockets.Follow({5 * kMiB, EDirection::kReceived});
  CProgressWatch watch;
  CProjectClient client = Client(&watch);
  SVerifyRequest request;
  request.m_strProject = "P";
  const SVerifyResult verified = client.Verify(request);
  EXPECT_TRUE(sockets.HasEnded() && watch.m_bRetried);
  EXPECT_TRUE(verified.IsSame()) << verified.m_strWhy;
  EXPECT_LT(verified.m_llRead, 8 * kMiB + 10000);
  EXPECT_EQ(watch.m_last.m_llDone, 8 * kMiB + 1);
  watch.m_last = STransferProgress();
  watch.m_act = [&] { client.Cancel(); };
  const SVerifyResult cancelled = client.Verify(request);
  EXPECT_TRUE(cancelled.m_bCancelled && !cancelled.IsSame());
  EXPECT_EQ(cancelled.m_vecFiles.size(), 0U);
}

}  // namespace
