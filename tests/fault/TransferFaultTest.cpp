// Every fault in its turn: what a put or get and the server make of a failing file
// system and a failing network while a project goes up and comes down. After
// each the same call is repeated until it reports success.
//
// A share of all faults, drawn by KQFT_SEED; all of them with KQFT_SWEEP=all,
// which is what "tests/soak.sh sweep" does.

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <random>

#include "net/NetWorkPackHead.h"
#include "support/Programs.h"
#include "support/TestServer.h"
#include "support/TestSockets.h"
#include "transfer/ProjectClient.h"

namespace fs = std::filesystem;

namespace {

using Tree = std::map<std::string, std::string>;  // content by name
constexpr int kMostRuns = 5;                      // until one succeeds that nothing hurts
constexpr int kPace = 50;                         // of test time

void WriteTree(const std::string& directory, const Tree& tree) {
  for (const auto& [name, content] : tree) WriteWholeFile(directory + name, content);
}

class TransferFault : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    const char* seed = std::getenv("KQFT_SEED");
    m_nSeed = seed != nullptr ? static_cast<unsigned>(std::atoi(seed)) : 1;
    m_random.seed(m_nSeed);
    WriteTree(m_client / "local/", m_local);
    ASSERT_TRUE(m_server.Init(0));
  }
  void TearDown() override {
    std::cout << GetParam() << ", seed " << m_nSeed << ": " << m_nPlaced << " faults placed, "
              << m_nRuns << " runs, " << m_nLosses << " losses\n";
    EXPECT_GT(m_nPlaced, 0);
    // The server's end waits for every session that stored something.
    for (const auto& [key, session] : m_server.m_mapClient) session->m_bWriting = false;
  }

  bool IsPut() const { return std::string(GetParam()) == "put"; }

  // A project of its own for each case. A put finds a part of the recording.
  void StartCase() {
    m_strProject = "P" + std::to_string(++m_nCase);
    WriteTree(m_serverDir / (m_strProject + "/"), IsPut() ? m_held : m_local);
  }
  void EndCase() {
    std::error_code held;  // by a session that has not ended yet; each round has its own project
    fs::remove_all(m_serverDir / m_strProject, held);
    fs::remove_all(m_client / "back");
  }

  SPutRequest PutRequest() const {
    SPutRequest request;
    request.m_vecPaths = {m_client / "local"};
    request.m_strProject = m_strProject;
    request.m_nRetries = 0;
    request.m_bTakeOver = true;  // from what a run at another address has left
    return request;
  }
  SGetRequest GetRequest() const {
    SGetRequest request;
    request.m_strProject = m_strProject;
    request.m_strInto = m_client / "back";
    request.m_nRetries = 0;
    return request;
  }

  // One put or get, from an address of its own. Success of what differs is
  // what must never be.
  bool Run(const std::string& what) {
    const int at = m_nRuns++;
    CProjectClient client({"127.0.0.1", m_server.Port(),
                           "127.8." + std::to_string(at / 250) + "." + std::to_string(at % 250 + 1),
                           m_client.Path()});
    const bool done =
        IsPut() ? client.Put(PutRequest()).IsDone() : client.Get(GetRequest()).IsDone();
    if (done) {
      const bool whole =
          IsPut() ? ReadTree(m_serverDir / m_strProject) == m_whole
                  : ReadTree(m_client / ("back/" + m_strProject)) == m_local || m_bMayMiss;
      m_nLosses += whole ? 0 : 1;
      EXPECT_TRUE(whole) << "success on different bytes: " << what;
    }
    if (IsPut()) {  // the side file names every range, whatever happened
      const std::string lost = ReadWholeFile(m_serverDir / (m_strProject + "/Run.li"));
      EXPECT_EQ(std::count(lost.begin(), lost.end(), '\n'), 4) << what << "\n" << lost;
    }
    return done;
  }

  void RunUntilDone(const std::string& what) {
    bool done = false;
    for (int i = 0; i < kMostRuns && !done; ++i) {
      done = Run(what);
      m_system.Follow(CFaultPlan().ClockFaster(5));  // a busy machine needs more time
    }
    m_system.Follow(CFaultPlan().ClockFaster(kPace));
    m_nLosses += done ? 0 : 1;
    EXPECT_TRUE(done) << what;
  }

  // The next of a row of faults to place; a slow system places fewer.
  int Skip(int share) {
    const char* const times = std::getenv("KQFT_FAULT_SHARE");
    if (times != nullptr) share *= std::max(std::atoi(times), 1);
    return IsWholeSweep() ? 1 : 1 + static_cast<int>(m_random() % static_cast<unsigned>(2 * share));
  }

  CScopedSystem m_system{CFaultPlan().ClockFaster(kPace)};
  CScopedSockets m_sockets;
  CTempDirectory m_serverDir;
  CTempDirectory m_client;
  CTestServer m_server{m_serverDir};
  const std::string m_run = PatternBytes(200000, 7);
  const Tree m_local = {{"Run.tm", m_run},
                        {"a.can", PatternBytes(70000, 8)},
                        {"b.txt", PatternBytes(66000, 9)},
                        {"sub/c.txt", "text"},
                        {"d.gps", ""}};
  const std::string m_sizes = "[FileInfo]\r\nFileCount=1\r\nSize1=100000\r\n";
  const std::string m_head = "[Lost_Pos]\r\nnRecordCount=2\r\n";
  const Tree m_held = {
      {"Run.tm", std::string(m_run).replace(50, 30000, 30000, '\0').substr(0, 100000)},
      {"Run(1).tm", std::string(m_run).replace(110000, 9, 9, '\0').substr(100000, 50000)},
      {"Run.li", m_head + "lost_info_0=50,30000\r\nlost_info_1=110000,9\r\n"},
      {"Run.fi", m_sizes}};
  const Tree m_whole = [this] {
    Tree tree = m_local;
    tree["Run.tm"] = m_run.substr(0, 100000);
    tree["Run(1).tm"] = m_run.substr(100000);
    tree["Run.li"] = m_head + "lost_info_0=30050,0\r\nlost_info_1=110009,0\r\n";
    tree["Run.fi"] = m_sizes;
    return tree;
  }();
  std::mt19937 m_random;
  unsigned m_nSeed = 0;
  std::string m_strProject;
  bool m_bMayMiss = false;  // success on a part is none of the program's making
  int m_nCase = 0, m_nRuns = 0, m_nPlaced = 0, m_nLosses = 0;
};

INSTANTIATE_TEST_SUITE_P(Both, TransferFault, testing::Values("put", "get"),
                         [](const auto& test) { return std::string(test.param); });

TEST_P(TransferFault, EveryCallToTheFileSystemMayFailOnceOrForGood) {
  constexpr ESystemError kErrors[] = {ESystemError::kNoSpace, ESystemError::kOther,
                                      ESystemError::kAccess, ESystemError::kTooMany};
  constexpr int kShare = 16;
  const auto place = [&](EOperation operation, const std::string& side, int k, bool forGood,
                         ESystemError error, const std::string& what) {
    StartCase();
    // A directory that the server cannot list is not in its list, and nobody
    // can tell: kept on purpose.
    m_bMayMiss = !IsPut() && operation == EOperation::kListDirectory && side == m_serverDir.Path();
    CFaultPlan plan = CFaultPlan().Below(side);
    m_system.Follow(forGood ? plan.FailFrom(operation, k, error) : plan.Fail(operation, k, error));
    const int before = m_system.Struck();
    const bool done = Run(what);
    const bool struck = m_system.Struck() > before;
    m_system.Heal();
    m_bMayMiss = false;
    m_nPlaced += struck ? 1 : 0;
    if (!done) RunUntilDone("after " + what);
    EndCase();
    return struck;
  };
  for (const std::string& side : {m_serverDir.Path(), m_client.Path()}) {
    StartCase();
    m_system.Follow(CFaultPlan().Below(side).ClockFaster(5));  // as patient as below
    EXPECT_TRUE(Run("no fault"));
    std::map<EOperation, int> calls;
    for (const auto& [operation, name] : kOperations) calls[operation] = m_system.Calls(operation);
    m_system.Follow(CFaultPlan().ClockFaster(kPace));
    EndCase();
    for (const auto& [operation, name] : kOperations) {
      for (const bool forGood : {false, true}) {
        const int last = calls[operation];
        bool struck = last > 0;
        for (int k = std::min(Skip(kShare / 4), last); struck && k <= last; k += Skip(kShare)) {
          struck = false;
          const std::size_t only = m_random() % std::size(kErrors);
          for (std::size_t i = 0; i < std::size(kErrors); ++i) {
            if (!IsWholeSweep() && i != only) continue;
            const std::string what =
                std::string(name) + " " + std::to_string(k) + (forGood ? " for good" : "") +
                (side == m_client.Path() ? " of the client" : " of the server");
            struck = place(operation, side, k, forGood, kErrors[i], what) || struck;
          }
        }
      }
    }
  }
}

TEST_P(TransferFault, ConnectionsMayEndAnywhereFallSilentAndCutBytesAsTheyLike) {
  constexpr int kShare = 90;
  constexpr std::size_t kHead = kPackHeadBytes;
  const auto place = [&](const SLinkPlan& plan, const std::string& what) {
    StartCase();
    m_sockets.Follow(plan);
    const bool done = Run(what);
    const bool ended = m_sockets.HasEnded();
    m_sockets.Follow(SLinkPlan());
    m_nPlaced += ended || plan.m_llEndAt < 0 ? 1 : 0;
    if (plan.m_llEndAt < 0) {
      EXPECT_TRUE(done) << what;
    }
    if (!done) RunUntilDone("after " + what);
    EndCase();
  };
  StartCase();
  m_sockets.Follow(SLinkPlan());
  RunUntilDone("no fault");
  EndCase();
  const std::string streams[] = {m_sockets.Carried(EDirection::kSent),
                                 m_sockets.Carried(EDirection::kReceived)};
  for (const EDirection direction : {EDirection::kSent, EDirection::kReceived}) {
    const std::string& stream = streams[static_cast<int>(direction)];
    std::set<std::size_t> ends;  // around every boundary, and in every head
    for (std::size_t at = 0; at + kHead <= stream.size();) {
      if (at > 0) ends.insert(at - 1);
      for (std::size_t i = 0; i <= kHead + 1; ++i) ends.insert(at + i);
      at += kHead + CNetWorkPackHead::BodyLength(stream.data() + at);
    }
    const std::string way = direction == EDirection::kSent ? " sent" : " received";
    int wait = Skip(kShare);
    for (const std::size_t end : ends) {
      if (--wait > 0) continue;
      wait = Skip(kShare);
      place({static_cast<std::int64_t>(end), direction}, std::to_string(end) + way);
    }
  }
  const std::int64_t received = std::ssize(streams[1]);
  for (const std::int64_t tenths : {3, 5}) {
    place({received * tenths / 10, EDirection::kReceived, true},
          "silent after " + std::to_string(tenths) + "/10");
  }
  m_system.Follow(CFaultPlan().ClockFaster(1));  // one byte at a time takes its time
  for (const std::size_t piece : {1U, 19U, 21U}) {
    place({-1, EDirection::kSent, false, piece}, "pieces of " + std::to_string(piece));
  }
  place({-1, EDirection::kSent, false, SIZE_MAX, 3}, "clumps");
}

}  // namespace
