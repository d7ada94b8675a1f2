// What a durable server has on the disk when it confirms, and what it says
// and leaves when the disk fails.

#include <optional>

#include "net/LayerThread.h"
#include "platform/ByteOrder.h"
#include "protocol/MessageCodes.h"
#include "protocol/ResultCodes.h"
#include "support/FakeTransNet.h"
#include "support/ForgetfulDisk.h"

namespace {

// A session of a durable server.
class DurableUpload : public CSessionTest {
 protected:
  DurableUpload() { m_net.m_bDurable = true; }

  // A whole upload; the codes of what came back.
  std::vector<int> Upload(const std::string& name, const std::string& bytes, std::int64_t at = 0) {
    const std::size_t before = m_net.Codes().size();
    AskUpload(false, name);
    SendChunk(at, bytes);
    Ask(NET_CTS_TRANSFILEDATA_END);
    const std::vector<int> codes = m_net.Codes();
    return {codes.begin() + static_cast<std::ptrdiff_t>(before), codes.end()};
  }

  // What the server says that it holds.
  std::int64_t Held(const std::string& name) {
    return ReadInt64(AskUpload(false, name).data() + 4);
  }

  // A durable server ended while it received a file; 600 of its bytes are
  // known to lie on the disk.
  void LeaveUnfinished(const std::string& name) {
    WriteWholeFile(m_dir / name, m_strWhole.substr(0, 600));
    m_net.m_bDurable = true;
    CSession gone(&m_net);
    Hand(gone, NET_CTS_PREPARETRAN_FILE, std::string(1, '\0') + (m_dir / name));
    Hand(gone, NET_CTS_TRANSFILEDATA, Int64(600) + m_strWhole.substr(600));
  }

  const std::string m_strWhole = PatternBytes(1000);
};

TEST_F(DurableUpload, FailedFlushIsToldBeforeTheEndAndWhatItLostIsSentAgain) {
  const std::vector<int> good = {NET_CTS_PREPARETRAN_FILE, NET_CTS_TRANSFILEDATA_END};
  const std::vector<int> bad = {NET_CTS_PREPARETRAN_FILE, NET_STC_WRITEDATA_ERROR,
                                NET_CTS_TRANSFILEDATA_END};
  WriteWholeFile(m_dir / "run.tm", "old");
  // Of a file that is there one flush, of a new one also those of its own,
  // the made and the upper directory.
  m_system.Follow(CFaultPlan().Fail(EOperation::kFlush, 1, ESystemError::kOther));
  EXPECT_EQ(Upload("run.tm", "new", 3), bad);
  EXPECT_EQ(m_net.LastBody(NET_STC_WRITEDATA_ERROR), Int32(ERROR_CODE_SERVER_WRITE));
  EXPECT_EQ(ReadWholeFile(m_dir / "run.tm"), "old");
  for (int each = 0; each <= 3; ++each) {
    const std::string name = std::to_string(each) + "/deep/run.tm";
    const EOperation flush = each == 0 ? EOperation::kFlush : EOperation::kFlushDirectory;
    m_system.Follow(CFaultPlan().Fail(flush, std::max(each, 1), ESystemError::kOther));
    EXPECT_EQ(Upload(name, "new"), bad) << each;
    EXPECT_EQ(FileSize(m_dir / name), 0);
    m_system.Heal();
    EXPECT_EQ(Upload(name, "new"), good);
  }
  m_system.Follow(CFaultPlan().Fail(EOperation::kFlush, 1, ESystemError::kOther));
  m_net.m_bDurable = false;
  EXPECT_EQ(Upload("run.tm", "plain"), good);
}

TEST_F(DurableUpload, LongFileIsCutToWhatLiesOnTheDiskAfterAnAccident) {
  constexpr std::int64_t kStep = 64 << 20;
  const std::string step(kStep, 's');
  const auto held = [&] { return Held("run.tm"); };
  held();
  SendChunk(0, step);
  SendChunk(kStep, step);  // now the first one lies on the disk
  SendChunk(2 * kStep, "x");
  EXPECT_EQ(held(), 2 * kStep + 1);  // the link was cut, no more
  m_system.Reboot();
  EXPECT_EQ(held(), kStep);
  m_system.Follow(CFaultPlan().Fail(EOperation::kStartFlush, 1, ESystemError::kNoSpace));
  SendChunk(kStep, step);
  EXPECT_EQ(m_net.Count(NET_STC_WRITEDATA_ERROR), 1U);  // at once, not at the end
  SendChunk(2 * kStep, "behind what was lost");
  EXPECT_EQ(held(), kStep);
  SendChunk(kStep, "rest");
  Ask(NET_CTS_TRANSFILEDATA_END);
  m_system.Reboot();
  EXPECT_EQ(held(), kStep + 4);
}

TEST_F(DurableUpload, OnlyADurableServerCutsAndOnlyWhatACrashLeft) {
  LeaveUnfinished("plain.tm");
  m_system.Reboot();
  m_net.m_bDurable = false;
  EXPECT_EQ(Held("plain.tm"), 1000);
  SendChunk(1000, "end");
  Ask(NET_CTS_TRANSFILEDATA_END);  // confirmed: no later server cuts it either
  m_net.m_bDurable = true;
  EXPECT_EQ(Held("plain.tm"), 1003);
  EXPECT_TRUE(ReadWholeFile(m_dir / "plain.tm") == m_strWhole + "end");

  LeaveUnfinished("run.tm");
  m_system.Move("");
  EXPECT_EQ(Held("run.tm"), 1000);
  m_system.Move("other");
  m_system.Follow(CFaultPlan().FailFrom(EOperation::kLock, 1, ESystemError::kUnsupported));
  EXPECT_EQ(Held("run.tm"), 1000) << "nobody knows whether that machine still receives it";
  EXPECT_TRUE(ReadWholeFile(m_dir / "run.tm") == m_strWhole);
  m_system.Heal();
  EXPECT_EQ(Held("run.tm"), 600) << "nobody holds it";

  AskUpload(true, "new.tm");  // one that was begun anew may be gone on with as well
  SendChunk(0, "zeros after the accident");
  m_system.Reboot();
  EXPECT_EQ(Held("new.tm"), 0);
}

TEST_F(DurableUpload, WhatSomebodyReceivesIsNeitherCutNorEmptied) {
  CFakeTransNet net;
  net.m_bDurable = true;
  std::optional<CSession> receiver(std::in_place, &net);
  const auto store = [&](std::int64_t position, const std::string& bytes) {
    Hand(*receiver, NET_CTS_TRANSFILEDATA, Int64(position) + bytes);
  };
  Hand(*receiver, NET_CTS_PREPARETRAN_FILE, std::string(1, '\0') + (m_dir / "run.tm"));
  store(0, m_strWhole.substr(0, 700));
  m_session.SetLog(m_dir / "log_");
  for (const char* const machine : {"here", "other"}) {
    m_system.Move(machine);  // from which the note is of another run, or machine
    for (const bool create : {false, true}) {
      EXPECT_EQ(AskUpload(create, "run.tm"), Int32(CREATE_FILE_ERROR) + Int64(700));
    }
  }
  EXPECT_TRUE(Holds(Log(), " another receiver has the file here process "));
  store(700, m_strWhole.substr(700));
  Hand(*receiver, NET_CTS_TRANSFILEDATA_END, "");
  EXPECT_EQ(Held("run.tm"), 1000);
  EXPECT_TRUE(ReadWholeFile(m_dir / "run.tm") == m_strWhole);
  Ask(NET_CTS_TRANSFILEDATA_END);

  Hand(*receiver, NET_CTS_PREPARETRAN_FILE, std::string(1, '\0') + (m_dir / "left.tm"));
  store(0, "lost with its machine");
  receiver->m_bWriting = false;
  receiver.reset();
  m_system.Move("here");
  EXPECT_EQ(Held("left.tm"), 0);
}

TEST_F(DurableUpload, CutFileTakesNothingBehindItsEndUntilItIsWholeAgain) {
  LeaveUnfinished("run.tm");
  m_system.Reboot();
  for (std::size_t time = 1; time <= 3; ++time) {
    EXPECT_EQ(Held("run.tm"), 600);
    SendChunk(100, m_strWhole.substr(100, 50));
    Ask(NET_CTS_TRANSFILEDATA_END);
    EXPECT_EQ(Upload("run.tm", m_strWhole.substr(800, 50), 800).size(), 3U);
    EXPECT_EQ(m_net.Count(NET_STC_WRITEDATA_ERROR), time);
    if (time == 2) m_system.Reboot();
  }
  EXPECT_EQ(Upload("run.tm", m_strWhole.substr(600), 600).size(), 2U);
  EXPECT_TRUE(ReadWholeFile(m_dir / "run.tm") == m_strWhole);
  EXPECT_EQ(Upload("run.tm", "far", 1200).size(), 2U);
  EXPECT_EQ(FileSize(m_dir / "run.tm"), 1203);
}

// While packets of the link are there, ends of new files wait for one another,
// and everything that is answered behind them waits with them.
TEST_F(DurableUpload, SmallFilesAreConfirmedTogetherAndFailAlone) {
  constexpr int kFiles = 5;
  const auto moreToCome = [](bool more) { LayerThread().m_bMoreToCome = more; };
  const auto send = [this, moreToCome](const std::string& name, bool more = true) {
    moreToCome(true);
    AskUpload(true, name);
    SendChunk(0, name);
    moreToCome(more);
    Ask(NET_CTS_TRANSFILEDATA_END);
  };
  for (int failing = 0; failing <= kFiles; ++failing) {
    m_system.Follow(CFaultPlan().Fail(EOperation::kFlush, failing, ESystemError::kOther));
    const std::string directory = std::to_string(failing) + "/";
    const std::size_t before = m_net.Packets().size();
    std::vector<int> expected;
    for (int i = 1; i <= kFiles; ++i) {
      send(directory + std::to_string(i), i < kFiles);
      EXPECT_TRUE(i == kFiles || m_net.Packets().size() == before + 1) << i;
      expected.push_back(NET_CTS_PREPARETRAN_FILE);
      if (i == failing) expected.push_back(NET_STC_WRITEDATA_ERROR);
      expected.push_back(NET_CTS_TRANSFILEDATA_END);
    }
    const std::vector<int> codes = m_net.Codes();
    EXPECT_EQ(std::vector<int>(codes.begin() + static_cast<std::ptrdiff_t>(before), codes.end()),
              expected);
    EXPECT_EQ(m_system.Calls(EOperation::kFlushDirectory), 2) << failing;
    for (int i = 1; i <= kFiles; ++i) {
      const std::string name = directory + std::to_string(i);
      EXPECT_EQ(ReadWholeFile(m_dir / name), i == failing ? "" : name);
    }
  }
  const auto flushes = [this] { return m_system.Calls(EOperation::kFlush); };
  m_system.Heal();
  send("a");
  EXPECT_EQ(flushes(), 0);
  send("a");  // the same one again: the first one ends before
  EXPECT_EQ(flushes(), 1);
  Ask(NET_CTS_REQUEST_SERVERFILESIZE, "a");  // whatever is asked comes behind them
  EXPECT_EQ(flushes(), 2);
  for (int i = 0; i < 64; ++i) send("n" + std::to_string(i));
  EXPECT_EQ(flushes(), 66) << "so many wait and no more";
  send("b");
  AskUpload(true, "large");
  SendChunk(0, std::string(5 << 20, 'l'));
  EXPECT_EQ(flushes(), 67) << "nor behind so much";
  for (int i = 0; i < 256; ++i) Ask(NET_CTS_TRANSFILEDATA_END);
  EXPECT_EQ(flushes(), 68) << "nor before so many answers";
  send("a");
  const std::size_t ends = m_net.Count(NET_CTS_TRANSFILEDATA_END);
  m_session.StopService();
  m_session.ResetForLink();
  send("c", false);
  EXPECT_EQ(m_net.Count(NET_CTS_TRANSFILEDATA_END), ends + 1) << "the link of the other is gone";
}

TEST_F(DurableUpload, RangeLiesOnTheDiskBeforeItsRecordShrinks) {
  const std::string record = "[Lost_Pos]\nnRecordCount=1\nlost_info_0=";
  WriteWholeFile(m_dir / "run.tm", "..........");
  WriteWholeFile(m_dir / "run.li", record + "2,3\n");
  const auto report = [&] {
    Ask(NET_CTS_GETLOSTINFO, m_dir / "run.tm");
    return Ask(NET_CTS_CHANGELOSTINFO, Int32(0) + Int64(5000000000) + Int64(0));
  };
  // The link breaks before the end of the range; the client reports it.
  m_system.Follow(CFaultPlan().Fail(EOperation::kFlush, 1, ESystemError::kOther));
  const auto sendAndBreak = [&] {
    AskUpload(false, "run.tm");
    SendChunk(2, "new");
    m_session.StopService();
    m_session.ResetForLink();
  };
  sendAndBreak();
  EXPECT_EQ(report(), Int32(ERROR_CODE_LOSTINFO_ACCESS));
  EXPECT_EQ(report(), Int32(ERROR_CODE_LOSTINFO_ACCESS));  // the disk will not say it again
  EXPECT_EQ(ReadWholeFile(m_dir / "run.li"), record + "2,3\n");

  sendAndBreak();
  EXPECT_EQ(report(), Int32(RESULT_OK));
  EXPECT_EQ(ReadWholeFile(m_dir / "run.li"), record + "5000000000,0\n");
}

// A disk that forgets, and a server in it that is ended in any moment.
class PowerLoss : public DurableUpload {
 protected:
  static constexpr int kFiles = 12;

  struct SFile {
    std::string m_strName;
    std::string m_strBytes;
  };
  static SFile FileOf(int i) {
    return {std::to_string(i / 5) + (i % 3 == 0 ? "/deep/" : "/") + std::to_string(i),
            PatternBytes(static_cast<std::size_t>(i % 4) * 10, static_cast<unsigned>(i))};
  }

  // Hands a new session some files, of which those before the last come with
  // the next one behind them. @return which were confirmed without a complaint
  std::vector<bool> Receive(const std::vector<SFile>& files, bool complete = true) {
    CSession session(&m_net);
    m_net.Clear();
    LayerThread().m_bMoreToCome = true;
    for (const SFile& file : files) {
      Hand(session, NET_CTS_PREPARETRAN_FILE, "\1" + (m_dir / file.m_strName));
      if (!file.m_strBytes.empty())
        Hand(session, NET_CTS_TRANSFILEDATA, Int64(0) + file.m_strBytes);
      LayerThread().m_bMoreToCome = !complete || &file != &files.back();
      Hand(session, NET_CTS_TRANSFILEDATA_END, "");
    }
    LayerThread().m_bMoreToCome = false;
    session.m_bWriting = false;
    std::vector<bool> confirmed;
    bool good = true;
    for (const auto& [code, body] : m_net.Packets()) {
      if (code != NET_CTS_TRANSFILEDATA_END) {
        good = good && ReadInt32(body.data()) == RESULT_OK;
      } else {
        confirmed.push_back(std::exchange(good, true));
      }
    }
    confirmed.resize(files.size(), false);
    return confirmed;
  }

  // Also for who asks what the server holds of it, to go on.
  void ExpectWhole(const SFile& file, const std::string& when) {
    EXPECT_TRUE(ReadWholeFile(m_dir / file.m_strName) == file.m_strBytes) << file.m_strName << when;
    EXPECT_EQ(Held(file.m_strName), std::ssize(file.m_strBytes)) << file.m_strName << when;
    Ask(NET_CTS_TRANSFILEDATA_END);
    EXPECT_GE(FileSize(m_dir / file.m_strName), 0) << file.m_strName << when;
  }

  PowerLoss() {
    m_net.m_strFileDir = m_dir.Path();
    for (int i = 0; i < kFiles; ++i) m_files.push_back(FileOf(i));
  }

  std::vector<SFile> m_files;
  CForgetfulDisk m_disk{m_dir.Path()};
};

TEST_F(PowerLoss, LeavesWhateverWasConfirmed) {
  enum EAccident { kAllForgotten, kNamesKept, kProcessKilled };
  for (const EAccident accident : {kAllForgotten, kNamesKept, kProcessKilled}) {
    bool struck = true;
    for (int at = 1; struck; at += SweepStep(7)) {
      const std::string when = " " + std::to_string(accident) + " " + std::to_string(at);
      m_disk.FailFrom(at);
      const std::vector<bool> confirmed = Receive(m_files);
      struck = m_disk.HasFailed();
      m_disk.FailFrom(0);
      if (accident != kProcessKilled) {
        m_disk.LosePower(accident == kNamesKept);
        m_system.Reboot();
        for (int i = 0; i < kFiles; ++i) {
          if (confirmed[static_cast<std::size_t>(i)]) ExpectWhole(FileOf(i), when);
        }
      }
      EXPECT_EQ(Receive(m_files), std::vector<bool>(kFiles, true)) << when;
      m_disk.LosePower(accident == kNamesKept);
      m_system.Reboot();
      for (const SFile& file : m_files) ExpectWhole(file, when + ", the second time");
      m_disk.Clear();
    }
  }
}

// Names that somebody else has made, and has not brought to the disk.
TEST_F(PowerLoss, LeavesTheWayToWhatWasConfirmed) {
  const SFile first = {"a/b/c/first", "1"};
  const SFile second = {"a/b/c/second", "2"};
  std::optional<CSession> other(std::in_place, &m_net);
  const auto expectSecond = [&] {
    EXPECT_EQ(Receive({second}), std::vector<bool>{true});
    other.reset();
    m_disk.LosePower(false);
    ExpectWhole(second, "");
    m_disk.Clear();
  };
  Hand(*other, NET_CTS_PREPARETRAN_FILE, "\1" + (m_dir / first.m_strName));  // at the same time
  other->m_bWriting = false;
  expectSecond();
  Receive({first}, false);  // by one whose link has gone
  expectSecond();
  for (int k = 1; k <= 4; ++k) {  // by one that could not
    m_disk.FailDirectory(k);
    const SFile files[] = {first, second, {"a/b/c/third", "3"}};
    const std::vector<bool> confirmed = Receive({files[0], files[1], files[2]});
    EXPECT_FALSE(confirmed[0]) << k;
    m_disk.LosePower(false);
    for (std::size_t i = 0; i < 3; ++i) {
      if (confirmed[i]) ExpectWhole(files[i], " " + std::to_string(k));
    }
    m_disk.Clear();
  }
}

}  // namespace
