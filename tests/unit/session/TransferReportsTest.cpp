// What a server's hooks hear of a session's work, and what they can forbid.

#include <filesystem>

#include "protocol/MessageCodes.h"
#include "protocol/Messages.h"
#include "protocol/ResultCodes.h"
#include "support/FakeTransNet.h"

namespace {

using Heard = std::vector<std::string>;

// Writes down what it hears and forbids what it is told to.
class CHookedNet : public CFakeTransNet {
 public:
  bool MayUpload(const STransferFacts&) override { return m_forbidden != ERefusal::kUpload; }
  bool MayStore(const STransferFacts& file) override {
    m_vecAsked.push_back(file.m_llBytes);
    return m_forbidden != ERefusal::kUploadRest || file.m_llBytes < 1000000;
  }
  bool MayDownload(const STransferFacts&) override { return m_forbidden != ERefusal::kDownload; }
  bool MaySend(const STransferFacts&) override {
    if (m_forbidden == ERefusal::kDownloadRest) throw std::string("cannot decide");
    return true;
  }
  bool MayDelete(const STransferFacts&) override { return m_forbidden != ERefusal::kDelete; }
  void OnUploaded(const STransferFacts& file) override { Hear("up", file); }
  void OnDownloaded(const STransferFacts& file) override { Hear("down", file); }
  void OnFilesListed(const STransferFacts& project) override { Hear("files", project); }
  void OnDeleted(const STransferFacts& project) override { Hear("deleted", project); }
  void OnRefused(const STransferFacts& what, ERefusal) override { Hear("refused", what); }

  Heard TakeHeard() {
    const std::lock_guard<std::mutex> lock(m_mutex);
    return std::exchange(m_heard, {});
  }

  ERefusal m_forbidden = ERefusal::kLinks;  // nothing
  std::vector<std::int64_t> m_vecAsked;

 private:
  void Hear(const std::string& what, const STransferFacts& facts) {
    EXPECT_EQ(facts.m_nPort, kClientPort);
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_heard.push_back(what + " " + std::filesystem::path(facts.m_strPath).filename().string() +
                      " " + std::to_string(facts.m_llBytes) + " " +
                      std::to_string(facts.m_nResult));
  }

  std::mutex m_mutex;
  Heard m_heard;  // guarded by m_mutex
};

class TransferReports : public CSessionTest {
 protected:
  void Prepare(const std::string& name) {
    Hand(m_hooked, NET_CTS_PREPARETRAN_FILE, '\1' + (m_dir / name));
  }
  void Send(std::int64_t position, const std::string& bytes) {
    Hand(m_hooked, NET_CTS_TRANSFILEDATA, Int64(position) + bytes);
  }
  void End() { Hand(m_hooked, NET_CTS_TRANSFILEDATA_END, ""); }
  Heard Fetch(const std::string& name) {
    Hand(m_hooked, NET_CTS_PREPARETRANS_FILE, Int64(2) + (m_dir / name));
    m_hooked.WaitSenders();
    return m_hooks.TakeHeard();
  }

  CHookedNet m_hooks;
  CSession m_hooked{&m_hooks};
};

TEST_F(TransferReports, EveryTransferIsToldOnceHoweverItEnds) {
  Prepare("whole");
  Send(0, "abc");
  Send(3, "de");
  End();
  End();  // of nothing
  Prepare("replaced");
  Send(0, "x");
  Prepare("cut");
  Send(0, "xy");
  m_hooked.StopService();
  m_hooked.TellCutOff();
  m_hooked.TellCutOff();
  End();
  Prepare("late");
  m_hooked.ResetForLink();
  m_system.Follow(CFaultPlan().DiskFullAfter(2));
  Prepare("full");
  Send(0, "123");
  End();
  m_system.Heal();
  Prepare("");  // a directory
  EXPECT_EQ(m_hooks.TakeHeard(), (Heard{"up whole 5 1", "up replaced 1 -9", "up cut 2 -9",
                                        "up late 0 -9", "up full 0 -10", "up  0 -8"}));
  EXPECT_EQ(Fetch("whole"), Heard{"down whole 3 1"});
  EXPECT_EQ(Fetch("missing"), Heard{"down missing 0 -7"});
  m_hooks.m_bRefuseData = true;
  EXPECT_EQ(Fetch("whole")[0].substr(0, 10), "down whole");
}

TEST_F(TransferReports, LeavingIsNeitherAnUploadNorAFailure) {
  m_hooked.SetLog(m_dir / "log_");
  Prepare("file");
  m_system.AdvanceClock(10);
  Send(kLeavingPosition, "x");
  End();
  EXPECT_EQ(m_hooks.Bodies(NET_STC_WRITEDATA_ERROR), Heard{Int32(ERROR_CODE_SERVER_WRITE)});
  EXPECT_FALSE(m_hooked.m_bWriting);
  EXPECT_EQ(m_hooks.TakeHeard(), Heard{});
  EXPECT_EQ(ReadWholeFile(m_hooked.m_strLogFile).find("failed"), std::string::npos);
  Prepare("file");
  Send(-2, "x");
  End();
  EXPECT_EQ(m_hooks.TakeHeard(), Heard{"up file 0 -10"});
  EXPECT_NE(ReadWholeFile(m_hooked.m_strLogFile).find("write data failed"), std::string::npos);
}

TEST_F(TransferReports, WhatAHookForbidsIsRefusedAndTouchesNothing) {
  m_hooks.m_strFileDir = m_dir.Path();
  WriteWholeFile(m_dir / "P/file", "kept");
  m_hooks.m_forbidden = ERefusal::kUpload;
  m_hooked.m_bWriting = true;  // of a file before
  Prepare("P/file");
  EXPECT_FALSE(m_hooked.m_bWriting);
  EXPECT_EQ(m_hooks.LastBody(NET_CTS_PREPARETRAN_FILE), Int32(CREATE_FILE_ERROR) + Int64(4));
  m_hooks.m_forbidden = ERefusal::kDownload;
  Hand(m_hooked, NET_CTS_PREPARETRANS_FILE, Int64(0) + (m_dir / "P/file"));
  EXPECT_EQ(m_hooks.LastBody(NET_CTS_PREPARETRANS_FILE), Int32(ERROR_CODE_SERVER_OPENFILE));
  m_hooks.m_forbidden = ERefusal::kDelete;
  Hand(m_hooked, NET_CTS_DELETEPRJ, "P");
  EXPECT_EQ(m_hooks.LastBody(NET_CTS_DELETEPRJ), Int32(RESULT_OK) + '\1');
  EXPECT_EQ(m_hooks.TakeHeard(), (Heard{"refused file 0 1", "refused file 0 1", "refused P 0 1"}));
  EXPECT_EQ(ReadWholeFile(m_dir / "P/file"), "kept");

  m_hooks.m_forbidden = ERefusal::kDownloadRest;
  EXPECT_EQ(Fetch("P/file"), (Heard{"refused file 0 1", "down file 0 -28"}));
  m_hooks.m_forbidden = ERefusal::kUploadRest;
  Prepare("P/file");
  for (std::int64_t i = 0; i < 40; ++i) Send(i * 50000, std::string(50000, 'x'));
  End();
  EXPECT_EQ(m_hooks.Bodies(NET_STC_WRITEDATA_ERROR), Heard{Int32(ERROR_CODE_SERVER_WRITE)});
  EXPECT_EQ(m_hooks.TakeHeard(), (Heard{"refused file 1050000 1", "up file 1050000 -10"}));
  EXPECT_EQ(m_hooks.m_vecAsked, (std::vector<std::int64_t>{0, 1050000}));
  EXPECT_EQ(FileSize(m_dir / "P/file"), 1050000);

  // Nothing is written before it was asked for.
  std::string stream;
  for (std::int64_t i = 0; i < 40; ++i) {
    stream += MakePacket(NET_CTS_TRANSFILEDATA, Int64(i * 50000) + std::string(50000, 'x'));
  }
  Prepare("P/file");
  for (std::string_view rest = stream; !rest.empty();) rest = HandFirst(m_hooked, rest);
  End();
  EXPECT_EQ(m_hooks.TakeHeard(), (Heard{"refused file 1600000 1", "up file 1600000 -10"}));
  EXPECT_EQ(FileSize(m_dir / "P/file"), 1600000);

  m_hooks.m_forbidden = ERefusal::kLinks;
  for (int i = 0; i < 2; ++i) Hand(m_hooked, NET_CTS_DELETEPRJ, "P");
  Hand(m_hooked, NET_CTS_GETPRJFILELIST, "P");
  EXPECT_EQ(m_hooks.LastBody(NET_CTS_DELETEPRJ), Int32(RESULT_OK));
  EXPECT_EQ(m_hooks.TakeHeard(), (Heard{"deleted P 0 1", "deleted P 0 0", "files P 0 1"}));
}

}  // namespace
