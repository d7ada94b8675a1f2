// Uploads against a scripted server.

#include <atomic>
#include <cstdlib>
#include <new>
#include <optional>

#include "support/TestClient.h"

namespace {

using Statuses = std::vector<int>;
using Upload = CClientTest;

std::atomic<bool> s_bNoSendBuffers{false};  // as far as they have to be allocated

constexpr std::int64_t kLarge = 32 << 20;  // no queue or socket buffer holds it

TEST_F(Upload, FirstFailureEndsTheUploadWithItsCode) {
  m_system.Follow(CFaultPlan().ClockFaster(20));
  using Answer = std::optional<Packet>;
  struct SCase {
    std::string m_strFile;
    int m_nCode;  // of the message that is answered so, or not at all
    Answer m_answer;
    int m_nStatus;
    bool m_bLoseLink = false;  // before the answer
  };
  const auto held = [](std::int64_t bytes) { return Packet(2500, Int32(1) + Int64(bytes)); };
  const auto lost = [](const std::string& text) { return Packet(2509, Int32(1) + text); };
  const std::string huge = "9223372036854775807";
  const SCase cases[] = {{"missing", 0, {}, -17},
                         {std::string(1024, 'n'), 0, {}, -18},
                         {"a", 2500, Packet(2500, Int32(-8) + Int64(0)), -8},
                         {"a", 2500, {}, -19},
                         {"a", 2500, held(0), -20, true},
                         {"a", 2501, Packet(2508, Int32(-10)), -10},
                         {"a", 2502, {}, -21},
                         {"a.tm", 2509, Packet(2509, Int32(1)), -18, true},
                         {"a.tm", 2500, held(-5), -33},
                         {"a.tm", 2500, held(500), -34},  // the server has more
                         {"a.tm", 2500, held(INT64_MAX), -34},
                         {"a.tm", 2509, {}, -35},
                         {"a.tm", 2509, Packet(2509, Int32(-29)), -35},
                         {"a.tm", 2509, lost("|"), -36},
                         {"a.tm", 2509, lost("5|1,2,3|"), -36},
                         {"a.tm", 2509, lost("5|1,2|3|4"), -36},
                         {"a.tm", 2509, lost("0|0,11|"), -34},
                         {"a.tm", 2509, lost("0|-9,4|"), -33},
                         {"a.tm", 2509, lost("99999999999|0,4|"), -34},
                         {"a.tm", 2509, lost("7|" + huge + "," + huge + "|-" + huge), -33},
                         {"a.tm", 2509, lost("0|0,4|"), -19},  // the report gets no answer
                         {"missing.tm", 2509, lost("0|0,4|"), -17}};
  for (const SCase& each : cases) {
    CFakeServer server;
    CTestClient client(server.Port());
    for (const std::string name : {"a", "a.tm"}) client.File(name, "0123456789");
    server.Silent(2510);
    server.On(each.m_nCode, [&](const std::string&) {
      if (each.m_bLoseLink) client.m_pLinkInfo = nullptr;
      if (each.m_answer) server.Send(each.m_answer->first, each.m_answer->second);
    });
    EXPECT_EQ(client.Upload({each.m_strFile, "never"}), (Statuses{each.m_nStatus, 1}))
        << (each.m_answer ? each.m_answer->second : "");
    EXPECT_EQ(client.m_nTransState, 0);
    server.Stop();
  }
  m_client.File("a", "0123456789");
  m_server.On(2501, [&](const std::string&) { m_server.Send(2508, Int32(-10)); });
  EXPECT_EQ(m_client.Upload({"a"}), Statuses{-10});
  m_server.Silent(2501);
  EXPECT_EQ(m_client.Upload({"a"}), Statuses{1}) << "nothing of what failed is left";
  EXPECT_EQ(m_client.GetTrans(), 1.0F);
}

TEST_F(Upload, EveryFailedStartLeavesTheClientIdle) {
  m_server.Answer(2504, Int64(0));
  m_system.Follow(CFaultPlan().NoThreads());
  EXPECT_EQ(m_client.GetTrans(), 0.0F);
  MakeSparseFile(m_client.m_files / "huge", std::int64_t{5} << 30);
  EXPECT_EQ(m_client.StartUpload({"a", "huge"}), -18);
  EXPECT_EQ(m_client.m_TotalTransBytes, std::int64_t{5} << 30);
  EXPECT_EQ(m_client.m_evTransEnd->Wait(0), 0);
  EXPECT_EQ(m_client.StartDownload({"a"}), -18);
  m_system.Heal();
  EXPECT_TRUE(m_client.IsTransFinished());
  EXPECT_EQ(m_client.m_nTransState, 0);
  m_client.m_nTransState = 2;
  EXPECT_EQ(m_client.StartUpload({}), -16);
  EXPECT_EQ(m_client.Upload({}), Statuses{});
}

// A worker without memory fails its file and still ends its run; entries that
// a host calls leave the destructor's count of workers as it is.
TEST_F(Upload, EveryWorkerEndsItsRun) {
  m_server.Answer(2504, Int64(1));
  m_server.Answer(2509, Int32(1) + "0|0,4|");
  for (const std::string name : {"a", "a.tm", "down"}) {
    CTestClient client(m_server.Port());
    client.File(name, "0123");
    m_system.Follow(CFaultPlan()
                        .Fail(EOperation::kOpen, 1, ESystemError::kOther)
                        .Below(client.m_files.Path())
                        .OutOfMemory());
    EXPECT_EQ(name == "down" ? client.Download({name, "b"}) : client.Upload({name, "b"}),
              (Statuses{-18, 1}));
    EXPECT_EQ(client.m_evTransEnd->Wait(0) == 0, name != "down");
    CTestClient::SendFile(&client);
    CTestClient::ReceiveFile(&client);
  }
}

TEST_F(Upload, MissingSendBufferIsAFailedSendAndCounts) {
  m_client.File("a", "0123");
  std::vector<CIOCPBuffer*> taken;
  s_bNoSendBuffers = true;
  while (CIOCPBuffer* const buffer = m_client.GetIOCPBuffer()) taken.push_back(buffer);
  EXPECT_EQ(m_client.Upload({"a"}), Statuses{-20});
  EXPECT_FALSE(m_client.SendData(0, "01", 2));
  s_bNoSendBuffers = false;
  EXPECT_EQ(m_client.m_llTransBytes, 6);
  for (CIOCPBuffer* buffer : taken) m_client.ReleaseBuffer(buffer);
}

// -15 clears the state, so the third call gets through while the first
// worker still runs; records, file and flags must stay the new run's.
TEST_F(Upload, ThirdCallTakesOverFromARunningWorker) {
  MakeSparseFile(m_client.m_files / "large", kLarge);
  m_client.File("a", "aaaa");
  m_client.File("b", "bbbb");
  for (const int busyWith : {2501, 2502}) {  // streaming; waiting for the end
    m_server.Silent(2502);
    const std::size_t before = m_server.Count(busyWith);
    ASSERT_EQ(m_client.StartUpload({busyWith == 2501 ? "large" : "a"}), 1);
    ASSERT_TRUE(m_server.WaitFor(busyWith, before + 1));
    EXPECT_EQ(m_client.StartUpload({"b"}), -15);
    EXPECT_EQ(m_client.m_nTransState, 0);
    EXPECT_FALSE(m_client.IsTransFinished());
    m_server.Answer(2502, "");
    EXPECT_EQ(m_client.Upload({"b", "a"}), (Statuses{1, 1}));
    EXPECT_EQ(m_client.m_TotalTransBytes, 8);
    EXPECT_EQ(m_server.Bodies(2500).back(), "\1a");
  }
}

}  // namespace

// Only arrays: memory checkers keep watch over objects.
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return s_bNoSendBuffers && size == 65536 ? nullptr : std::malloc(size + 1);
}

void* operator new[](std::size_t size) {
  if (void* const area = operator new[](size, std::nothrow)) return area;
  throw std::bad_alloc();
}

void operator delete[](void* area) noexcept {
  std::free(area);
}

void operator delete[](void* area, std::size_t) noexcept {
  std::free(area);
}
