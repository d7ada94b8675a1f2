// Servers whose answers come late, or never.

#include <filesystem>
#include <utility>
#include <vector>

#include "protocol/MessageCodes.h"
#include "protocol/Messages.h"
#include "protocol/ResultCodes.h"
#include "protocol/TransferTypes.h"
#include "support/FakeServer.h"
#include "support/HostFiles.h"
#include "support/Packets.h"
#include "support/TestServer.h"
#include "transfer/ProjectClient.h"
#include "transfer/ProjectPath.h"

namespace fs = std::filesystem;

namespace {

class TransferAnswers : public testing::Test {
 protected:
  // Each comes from an address of its own.
  CProjectClient Client(int port) {
    return CProjectClient(
        {"127.0.0.1", port, "127.0.1." + std::to_string(++m_nRuns), m_logs.Path()});
  }
  STransferResult Put(int port) {
    WriteWholeFile(m_local / "P/a.txt", "a");
    SPutRequest request;
    request.m_vecPaths = {m_local / "P"};
    request.m_nRetries = 0;
    return Client(port).Put(request);
  }

  CScopedSystem m_system{CFaultPlan().ClockFaster(20)};
  const CTempDirectory m_logs;
  const CTempDirectory m_local;
  int m_nRuns = 0;
};

// Handles a note of who is sending when the file is read behind it, and the
// question for the projects when its client leaves. The second note comes while it
// seems to send a file.
class CPatientServer : public CTestServer {
 public:
  using CTestServer::CTestServer;
  ~CPatientServer() override { Stop(); }
  bool DealNetMsg(unsigned int ip, int port, int code, int length, const char* body,
                  int extra) override {
    const std::string text(length > 0 ? body : "", static_cast<std::size_t>(length));
    const bool isNote = code == NET_CTS_PREPARETRAN_FILE && text.ends_with(kSendingNoteName);
    m_bHolds = m_bHolds || isNote || code == NET_CTS_GETPRJLIST;
    m_held.emplace_back(code, text);
    const bool leaves = code == NET_CTS_TRANSFILEDATA && text == Int64(kLeavingPosition) + "x";
    if (m_bHolds && code != NET_CTS_PREPARETRANS_FILE && !leaves) return true;
    m_bHolds = false;
    for (const auto& [held, data] : std::exchange(m_held, {})) {
      const bool early = held == NET_CTS_PREPARETRAN_FILE && ++m_nStores == 2;
      CTransClient* const session = GetClientManage(ip, port);
      if (early) session->m_nTransType = PROCESS_TYPE_CLIENT_DOWNDATA;
      CTestServer::DealNetMsg(ip, port, held, static_cast<int>(data.size()), data.data(), extra);
      if (early) session->m_nTransType = PROCESS_TYPE_NONE;
    }
    return true;
  }
  bool m_bHolds = false;
  int m_nStores = 0;
  std::vector<Packet> m_held;
};

TEST_F(TransferAnswers, WhatDoesNotDependOnAnAnswerDoesNotWaitForIt) {
  const CTempDirectory dir;
  CPatientServer server(dir);
  ASSERT_TRUE(server.Init(0));
  const STransferResult put = Put(server.Port());
  EXPECT_TRUE(put.IsDone()) << put.m_strWhy;
  EXPECT_EQ(put.m_vecUnlisted, std::vector<std::string>{"P"});
  EXPECT_EQ(ReadWholeFile(dir / "P/a.txt"), "a");
  EXPECT_EQ(fs::file_size(dir / ("P/" + std::string(kSendingNoteName))), 0U);
}

// A server that does not answer is not asked for a courtesy, and nothing again
// that it passed over.
TEST_F(TransferAnswers, SilentServerIsLeftAtOnce) {
  for (const int silent : {NET_CTS_PREPARETRAN_FILE, NET_CTS_TRANSFILEDATA_END}) {
    CFakeServer fake;
    fake.Silent(silent);
    fake.Answer(NET_CTS_REQUEST_SERVERFILESIZE, Int64(0));
    fake.Answer(NET_CTS_PREPARETRANS_FILE, Int32(ERROR_CODE_SERVER_OPENFILE));
    EXPECT_FALSE(Put(fake.Port()).IsDone());
    EXPECT_EQ(fake.Count(NET_CTS_PREPARETRAN_FILE), 1U) << silent;
  }
  m_system.Follow(CFaultPlan().ClockFaster(100));
  for (const bool older : {true, false}) {
    CFakeServer fake;
    fake.On(NET_CTS_GETPRJLIST, [&fake, older](const std::string&) {
      if (!older) fake.Silent(NET_CTS_GETPRJDIR);  // it hangs
    });
    CProjectClient client = Client(fake.Port());
    std::vector<SProject> none;
    for (int i = 0; i < 2; ++i) {
      EXPECT_EQ(client.ListProjects(none), older ? kRequestUnknown : ERROR_CODE_TIMEOUT);
    }
    EXPECT_EQ(fake.Count(NET_CTS_GETPRJLIST), older ? 1U : 2U);
  }
}

}  // namespace
