// Many files behind one another, with a scripted server.

#include "client/KQFileBulkTransfer.h"

#include <filesystem>

#include "platform/ByteOrder.h"
#include "platform/KQPlatForm.h"
#include "support/Packets.h"
#include "support/TestClient.h"
#include "support/TestSockets.h"

namespace {

using Statuses = std::vector<int>;

constexpr int kFiles = 20;
constexpr int kStep = 13;  // bytes between two ends of a link

class CBulkClient : public CKQFileBulkTransfer {
 public:
  explicit CBulkClient(int port) {
    Init(m_logs.Path());
    SetPrjDir(m_files.Path());
    EXPECT_TRUE(Connect("127.0.0.1", port));
  }
  ~CBulkClient() override { Stop(); }

  int Start(bool up, int files) {
    std::vector<Channel_Key_Value> records(static_cast<std::size_t>(files));
    for (int i = 0; i < files; ++i) {
      Channel_Key_Value& record = records[static_cast<std::size_t>(i)];
      record.m_strName = NameOf(i);
      record.m_strPath = up ? m_files / NameOf(i) : NameOf(i);
      record.m_llSize = std::ssize(ContentOf(NameOf(i)));
    }
    return up ? UploadRecords(records) : DownloadRecords(records);
  }
  Statuses Finish() {
    EXPECT_TRUE(WaitUntil([this] { return IsTransFinished(); }));
    std::string xml;
    GetAllTransFileStatus(xml);
    Statuses statuses;
    for (const Channel_Key_Value& rec : ParseRecords(xml)) statuses.push_back(rec.m_nStatus);
    return statuses;
  }
  Statuses Move(bool up, int files = kFiles) {
    EXPECT_EQ(Start(up, files), 1);
    return Finish();
  }
  static std::string NameOf(int i) { return "f" + std::to_string(100 + i); }
  static std::string ContentOf(const std::string& name) {
    return PatternBytes(static_cast<std::size_t>(name.back() - '0') * 3,
                        static_cast<unsigned>(name[2]));
  }
  using CKQFileBulkTransfer::UploadRecords;
  std::string Local(int i) const { return m_files / NameOf(i); }

  CTempDirectory m_logs;
  CTempDirectory m_files;
};

class BulkTransfer : public testing::Test {
 protected:
  BulkTransfer() {
    m_server.On(2500, [this](const std::string& body) {
      m_strName = body.substr(1);
      m_strContent.clear();
      m_server.Send(2500, Int32(1) + Int64(0));
    });
    m_server.On(2501, [this](const std::string& body) { m_strContent += body.substr(8); });
    m_server.On(2502, [this](const std::string&) {
      m_stored[m_strName] = m_strContent;
      m_server.Send(2502);
    });
    m_server.Answer(2504, Int64(1));
    m_server.On(2505, [this](const std::string& body) { Serve(body); });
  }
  ~BulkTransfer() override { m_server.Stop(); }

  void Serve(const std::string& request, int end = 1) {
    const std::int64_t have = ReadInt64(request.data());
    const std::string content = CBulkClient::ContentOf(request.substr(8));
    m_server.Send(2505, Int32(1));
    const std::string rest = content.substr(static_cast<std::size_t>(have));
    if (!rest.empty()) m_server.Send(2506, Int64(have) + rest);
    m_server.Send(2507, Int32(end));
  }
  static void MakeFiles(const CBulkClient& client, int files = kFiles) {
    for (int i = 0; i < files; ++i) {
      WriteWholeFile(client.Local(i), CBulkClient::ContentOf(CBulkClient::NameOf(i)));
    }
  }

  // Whole packets of a kind that the first link under the plan has carried.
  std::int64_t CountCarried(EDirection direction, int code) const {
    std::int64_t count = 0;
    const std::string bytes = m_sockets.Carried(direction);
    for (std::size_t head = 0; head + 20 <= bytes.size();) {
      count += ReadInt32(bytes.data() + head + 4) == code ? 1 : 0;
      head += 20 + static_cast<std::size_t>(ReadInt32(bytes.data() + head + 12));
    }
    return count;
  }

  CScopedSystem m_system{CFaultPlan().ClockFaster(50)};
  CScopedSockets m_sockets;
  CFakeServer m_server;
  std::string m_strName, m_strContent;          // the delivery thread's
  std::map<std::string, std::string> m_stored;  // the delivery thread's
};

// What follows an answer out of its turn may be another file's.
TEST_F(BulkTransfer, EachAnswerMayLackComeLateTellOfAFailureOrComeTwice) {
  enum EFault { kMissing, kLate, kFailing, kTwice };
  for (const EFault fault : {kMissing, kLate, kFailing, kTwice}) {
    m_system.Follow(CFaultPlan().ClockFaster(fault == kMissing ? 50 : 5));
    for (const int k : {1, 2, 3, 7, 40}) {
      int answers = 0;
      Statuses expected(kFiles, 1);
      const bool isEnd = k % 2 == 0;
      const int odd = fault == kTwice && isEnd ? k / 2 : (k - 1) / 2;
      if ((fault == kMissing || fault == kTwice) && odd < kFiles) {
        std::fill(expected.begin() + odd, expected.end(), k == 1 && fault == kMissing ? -28 : -20);
        expected[static_cast<std::size_t>(odd)] = isEnd == (fault == kMissing) ? -21 : -19;
      }
      std::vector<Packet> held;
      CFakeServer server;  // ends before what it uses
      const auto answer = [&](int code, const std::string& good) {
        const auto file = static_cast<std::size_t>(answers / 2);
        const bool spoilt = ++answers % k == 0;
        if (spoilt && fault == kLate) System().Sleep(25);
        if (spoilt && fault == kFailing) {
          expected[file] = code == 2502 && expected[file] == 1 ? -10 : -8;
          server.Send(code == 2502 ? 2508 : code, code == 2502 ? Int32(-10) : Int32(-8) + Int64(0));
          if (code == 2500) return;
        }
        if (!spoilt || fault != kMissing) held.emplace_back(code, good);
        if (spoilt && fault == kTwice) held.emplace_back(code, good);
        if (fault == kTwice && answers < 2 * kFiles) return;  // all files are on their way
        for (const auto& [next, body] : std::exchange(held, {})) server.Send(next, body);
      };
      server.On(2500, [&](const std::string&) { answer(2500, Int32(1) + Int64(0)); });
      server.On(2502, [&](const std::string&) { answer(2502, ""); });
      CBulkClient client(server.Port());
      MakeFiles(client);
      EXPECT_EQ(client.Move(true), expected) << fault << " " << k;
    }
  }
}

// As many are on their way as a server takes for no flood, and no more.
TEST_F(BulkTransfer, FilesFollowOneAnotherWithinAWindow) {
  m_system.Follow(CFaultPlan().ClockFaster(5));
  m_sockets.Follow(SLinkPlan());
  CSharedWord<bool> silent = true;
  int owed = 0;
  const auto answer = [&](int code, const std::string& body) {
    if (silent) return;
    System().Sleep(25);
    m_server.Send(code, body);
  };
  m_server.On(2500, [&](const std::string&) { answer(2500, Int32(1) + Int64(0)); });
  m_server.On(2502, [&](const std::string&) {
    answer(2502, "");
    if (++owed != 128) return;
    System().Sleep(25);
    EXPECT_EQ(CountCarried(EDirection::kSent, 2500), 128);
    silent = false;
    for (int i = 0; i < 128; ++i) {
      m_server.Send(2500, Int32(1) + Int64(0));
      m_server.Send(2502);
    }
  });
  CBulkClient client(m_server.Port());
  MakeFiles(client, 140);
  EXPECT_EQ(client.Move(true, 140), Statuses(140, 1));
  std::vector<int> codes;
  for (const auto& [code, body] : m_server.Packets()) codes.push_back(code);
  codes.erase(codes.begin());  // the link
  for (std::size_t at = 0, i = 0; at < codes.size(); ++i) {
    const std::string content = CBulkClient::ContentOf(CBulkClient::NameOf(static_cast<int>(i)));
    EXPECT_EQ(codes[at++], 2500);
    if (!content.empty()) {
      EXPECT_EQ(codes[at++], 2501);
    }
    EXPECT_EQ(codes[at++], 2502);
  }
}

TEST_F(BulkTransfer, LinkMayEndAfterAnyByteUp) {
  m_system.Follow(CFaultPlan().ClockFaster(10));
  for (const EDirection direction : {EDirection::kSent, EDirection::kReceived}) {
    bool ended = true;
    for (int at = 1; ended; at += SweepStep(kStep)) {
      m_sockets.Follow({at, direction});
      CBulkClient client(m_server.Port());
      MakeFiles(client);
      const Statuses statuses = client.Move(true);
      client.Stop();
      ended = m_sockets.HasEnded();
      const std::int64_t confirmed = CountCarried(EDirection::kReceived, 2502);
      EXPECT_EQ(std::count(statuses.begin(), statuses.end(), 1), confirmed) << at;
      EXPECT_EQ(std::count(statuses.begin(), statuses.end(), -20), kFiles - confirmed) << at;
      EXPECT_TRUE(std::is_sorted(statuses.rbegin(), statuses.rend())) << at;
    }
  }
  m_server.Stop();
  for (int i = 0; i < kFiles; ++i) {
    EXPECT_EQ(m_stored[CBulkClient::NameOf(i)], CBulkClient::ContentOf(CBulkClient::NameOf(i)));
  }
}

TEST_F(BulkTransfer, LinkMayEndAfterAnyByteDownAndGoesOnExactly) {
  m_system.Follow(CFaultPlan().ClockFaster(10));
  for (const EDirection direction : {EDirection::kSent, EDirection::kReceived}) {
    bool ended = true;
    for (int at = 0; ended; at += SweepStep(kStep)) {
      // The sizes are asked for by the start.
      m_sockets.Follow({at + (direction == EDirection::kSent ? 120 : 28), direction});
      CBulkClient client(m_server.Port());
      const Statuses statuses = client.Move(false);
      ended = m_sockets.HasEnded();
      std::vector<std::string> requests;
      for (int i = 0; i < kFiles; ++i) {
        const std::string content = CBulkClient::ContentOf(CBulkClient::NameOf(i));
        const std::string here = ReadWholeFile(client.Local(i));
        EXPECT_EQ(here, content.substr(0, here.size()));
        const int status = statuses[static_cast<std::size_t>(i)];
        EXPECT_TRUE(status == 1 ? here == content : status == -20) << status;
        requests.push_back(Int64(std::ssize(here)) + CBulkClient::NameOf(i));
      }
      m_sockets.Follow(SLinkPlan());
      EXPECT_EQ(client.Move(false), Statuses(kFiles, 1));
      const std::vector<std::string> asked = m_server.Bodies(2505);
      EXPECT_EQ(std::vector<std::string>(asked.end() - kFiles, asked.end()), requests) << at;
      for (int i = 0; i < kFiles; ++i) {
        EXPECT_EQ(ReadWholeFile(client.Local(i)), CBulkClient::ContentOf(CBulkClient::NameOf(i)));
      }
    }
  }
}

TEST_F(BulkTransfer, OneFileOfADownloadFailsOrWaitsAlone) {
  m_system.Follow(CFaultPlan().ClockFaster(10));
  const std::pair<std::vector<Packet>, int> cases[] = {
      {{{2505, Int32(-7)}}, -7},
      {{{2505, Int32(-12)}}, 1},  // passes
      {{{2505, Int32(-9)}}, 1},
      {{{2506, Int64(0) + "x"}, {2506, Int64(2) + "x"}, {2507, Int32(-28)}, {2505, Int32(1)}}, -27},
      {{{2505, Int32(1)}, {2507, Int32(-28)}}, -28}};
  for (const auto& [answers, status] : cases) {
    bool first = true;
    m_server.On(2505, [&, sent = answers](const std::string& request) {
      if (!std::exchange(first, false)) return Serve(request);
      for (const auto& [code, body] : sent) m_server.Send(code, body);
    });
    CBulkClient client(m_server.Port());
    EXPECT_EQ(client.Move(false, 3), (Statuses{status, 1, 1}));
  }
  // The next one is asked for as its end is here already, and no stop may hit it.
  CBulkClient ahead(m_server.Port());
  bool first = true;
  m_server.On(2505, [&](const std::string& request) {
    if (!std::exchange(first, false)) return Serve(request);
    EXPECT_TRUE(
        WaitUntil([&] { return std::filesystem::exists(ahead.Local(2)); }));  // all are open
    m_server.SendTogether(MakePacket(2505, Int32(1)) + MakePacket(2506, Int64(0) + "x") +
                          MakePacket(2506, Int64(2) + "x") + MakePacket(2507, Int32(1)));
  });
  m_server.On(2503, [](const std::string&) { ADD_FAILURE() << "a stop"; });
  EXPECT_EQ(ahead.Move(false, 3), (Statuses{-27, 1, 1}));
  m_server.Answer(2503, "");
  first = true;  // the end of the first one comes once more, for the second one
  m_server.On(2505, [&](const std::string& request) {
    if (!std::exchange(first, false)) m_server.Send(2507, Int32(1));
    Serve(request);
  });
  CBulkClient told(m_server.Port());
  EXPECT_EQ(told.Move(false, 3), (Statuses{1, -20, -20}));
  EXPECT_FALSE(told.IsConnect());
  for (const auto& [answer, status] : {std::pair(0, -25), std::pair(2505, -26)}) {
    m_server.On(2505, [this, sent = answer](const std::string&) {
      if (sent != 0) m_server.Send(sent, Int32(1));
    });
    CBulkClient client(m_server.Port());
    EXPECT_EQ(client.Move(false, 2), (Statuses{status, -28}));
  }
}

TEST_F(BulkTransfer, StopEndsAtOnceAndTheLinkGoesOn) {
  CBulkClient client(m_server.Port());
  m_server.Silent(2500);
  m_server.Silent(2502);
  MakeFiles(client);
  ASSERT_EQ(client.Start(true, kFiles), 1);
  EXPECT_TRUE(WaitUntil([this] { return m_server.Count(2502) == kFiles; }));
  EXPECT_EQ(client.StopTrans(), 1);
  EXPECT_EQ(client.Finish(), Statuses(kFiles, -28));
  for (int i = 0; i < kFiles; ++i) {  // late
    m_server.Send(2500, Int32(1) + Int64(0));
    m_server.Send(2502);
  }

  // The end of a recording is answered late as well; its questions cut the link.
  m_system.Follow(CFaultPlan().ClockFaster(1));
  m_server.Answer(2500, Int32(1) + Int64(0));
  for (const int silent : {2502, 2500, 2509}) {
    m_server.Answer(2509, Int32(1));
    if (silent != 2502) m_server.Silent(silent);
    Channel_Key_Value record;
    record.m_strName = "r.tm";
    record.m_strPath = client.m_files / "r.tm";
    WriteWholeFile(record.m_strPath, "recorded");
    const std::size_t before = m_server.Count(silent);
    ASSERT_EQ(client.UploadRecords({record}), 1);
    EXPECT_TRUE(WaitUntil([&] { return m_server.Count(silent) > before; }));
    const std::int64_t since = System().SteadyMilliseconds();
    EXPECT_EQ(client.StopTrans(), 1);
    EXPECT_LT(System().SteadyMilliseconds() - since, 1000);
    EXPECT_EQ(client.Finish(), Statuses{silent == 2502 ? -28 : -20});
    EXPECT_EQ(client.IsConnect(), silent == 2502);
    if (silent == 2502) m_server.Send(2502);
    EXPECT_TRUE(client.Connect("127.0.0.1", m_server.Port()));
    m_server.Answer(2500, Int32(1) + Int64(0));
  }

  for (int i = 0; i < kFiles; ++i) System().RemoveFile(client.Local(i));
  m_server.Silent(2503);
  m_server.On(2505, [this](const std::string&) {
    m_server.Send(2505, Int32(1));
    m_server.Send(2506, Int64(0));
  });
  ASSERT_EQ(client.Start(false, kFiles), 1);
  EXPECT_TRUE(m_server.WaitFor(2505));
  EXPECT_EQ(client.StopTrans(), 1);
  EXPECT_EQ(client.Finish(), Statuses(kFiles, -28));
  EXPECT_TRUE(m_server.WaitFor(2503));
  EXPECT_FALSE(CKQPlatForm::IsFileExist(client.Local(kFiles - 1))) << "made ahead";
  m_server.Send(2506, Int64(0) + "late");
  m_server.Send(2507, Int32(-28));
  m_server.On(2505, [this](const std::string& body) { Serve(body); });
  EXPECT_EQ(client.Move(false), Statuses(kFiles, 1));
  for (int i = 0; i < kFiles; ++i) {
    EXPECT_EQ(ReadWholeFile(client.Local(i)), CBulkClient::ContentOf(CBulkClient::NameOf(i)));
  }
}

// The one before has a file at the server, and answers to come.
TEST_F(BulkTransfer, OneThatTakesOverWaitsUntilTheOneBeforeHasLeft) {
  CBulkClient client(m_server.Port());
  MakeFiles(client);
  m_server.Silent(2500);
  m_server.Silent(2502);
  ASSERT_EQ(client.Start(true, kFiles), 1);
  EXPECT_TRUE(WaitUntil([this] { return m_server.Count(2502) == kFiles; }));
  EXPECT_EQ(client.Start(true, 2), -15);
  bool late = true;
  m_server.On(2500, [&](const std::string&) {
    for (int i = 0; i < kFiles && late; ++i) {
      m_server.Send(2500, Int32(-8) + Int64(0));
      m_server.Send(2502);
    }
    late = false;
    m_server.Send(2500, Int32(1) + Int64(0));
  });
  m_server.On(2502, [this](const std::string&) { m_server.Send(2502); });
  EXPECT_EQ(client.Move(true, 2), (Statuses{1, 1}));

  for (int i = 0; i < kFiles; ++i) System().RemoveFile(client.Local(i));
  m_server.Silent(2505);
  m_server.On(2503, [this](const std::string&) {
    m_server.Send(2506, Int64(0) + "x");
    m_server.Send(2507, Int32(1));
  });
  ASSERT_EQ(client.Start(false, kFiles), 1);
  EXPECT_TRUE(m_server.WaitFor(2505));
  EXPECT_EQ(client.Start(false, 2), -16);
  m_server.On(2505, [this](const std::string& body) { Serve(body); });
  EXPECT_EQ(client.Move(false, 2), (Statuses{1, 1}));
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(ReadWholeFile(client.Local(i)), CBulkClient::ContentOf(CBulkClient::NameOf(i)));
  }
  EXPECT_FALSE(CKQPlatForm::IsFileExist(client.Local(2))) << "of the one before";

  // One that waits is stopped at once.
  m_system.Follow(CFaultPlan().ClockFaster(1));
  m_server.Silent(2503);
  m_server.Silent(2505);
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(client.Start(false, 2), 1);
    const std::int64_t since = System().SteadyMilliseconds();
    EXPECT_EQ(client.StopTrans(), 1);
    EXPECT_EQ(client.Finish(), (Statuses{-28, -28}));
    EXPECT_LT(System().SteadyMilliseconds() - since, 5000);
  }
}

}  // namespace
