#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "transfer/Transfer.h"

/// Who is sending a project: a file in its directory, kSendingNoteName, with a
/// record of each run. Two runs at once cannot both pass: a run writes its
/// record before it reads the others'.
///
/// A record is a line in each of two slots, zeros behind it, sealed like the
/// other small files. Who comes at the same time may take one of them as well,
/// hardly ever both:
///
///     RUN WORKSTATION COUNT SECONDS sending user@host     or wanting
///     # end 00112233445566778899aabbccddeeff
///
/// COUNT is higher than those that a run found when it came, SECONDS (since
/// 1970) its last sign of life. At the end of a run the file is emptied.

constexpr std::size_t kSendingSlotBytes = 256;
constexpr int kSendingSlots = 255;  // all of them fit into one message

/// A name for a run that no other one has.
std::string RunName();

struct SSendingRecord {
  std::string m_strRun;
  std::string m_strWorkstation;  ///< "" where earlier runs of it may still live
  std::int64_t m_llCount = 0;
  std::int64_t m_llAlive = 0;
  bool m_bSending = false;  ///< else it wants to, and looks whether it may
  std::string m_strBy;      ///< user@host, cut to what there is room for
};

/// A record as its slot holds it.
std::string SendingSlot(const SSendingRecord& record);

/// By slot, what stands in the file. A slot that holds something else, as
/// while it is written, becomes a record without a run.
std::map<int, SSendingRecord> ParseSendingSlots(std::string_view file);

/// The record of one run in one project.
class CSendingNote {
 public:
  /// @param project     its full name at the server
  /// @param workstation as CTurn names it
  CSendingNote(const STransferTools& tools, const std::string& project, std::string workstation);

  /// Enters the run. Gives way to whoever is sending, but not to what an
  /// earlier run of this workstation has left.
  /// @param takeOver give way to nobody who was there before
  /// @param ahead    called when nothing but one more reading may be left to do: what
  ///                 may be asked behind that (CSession::AskAhead)
  /// @return "" or why it must not send
  /// Blocks: for some answers, up to 3 s more when others come at the same time.
  std::string Begin(bool takeOver, const std::function<void()>& ahead);

  /// Looks whether the run may still send, and renews its sign of life.
  /// @param last it has to be certain: try again until there is an answer
  /// @return "" or why not
  std::string Look(bool last);

  /// Takes the run out, if it is in; does not wait for the answer.
  void End();

  /// Who is sending instead, "user@host"; "" when that is not why.
  const std::string& Other() const { return m_strOther; }

  /// True when there was no such file: nobody has sent the project before.
  bool IsNew() const { return m_bNew; }

  /// Full name of the file.
  const std::string& Place() const { return m_strPlace; }

 private:
  using Records = std::map<int, SSendingRecord>;
  int Read(Records& records);
  std::map<std::int64_t, std::string> Record(const std::vector<int>& dead);
  int WriteAndRead(const std::vector<int>& dead, Records& records);
  void ChooseSlots(const Records& records);
  bool IsMySlot(int slot) const;
  std::string Enter(std::vector<int> dead, bool takeOver, const std::function<void()>& ahead);
  bool GivesWayTo(const SSendingRecord& other) const;
  bool IsOurs(const SSendingRecord& other) const;
  std::string GiveWay(const SSendingRecord& other, const char* why);

  const STransferTools m_tools;
  const std::string m_strPlace;
  SSendingRecord m_mine;
  std::array<int, 2> m_slots{};
  bool m_bNew = false;
  bool m_bIn = false;     // the record may stand there
  bool m_bAlone = false;  // Begin has succeeded, and nobody has taken over
  std::string m_strOther;
};

/// Those of all projects that one put sends to.
class CPutSending {
 public:
  /// @param directory of all projects, as the server spells it
  CPutSending(const STransferTools& tools, const std::string& directory,
              const std::vector<STransferItem>& items, const std::string& workstation);

  std::string Begin(bool takeOver, const std::function<void()>& ahead);

  /// Looks every 10 s; what it found once stays.
  std::string Look();
  std::string LookLast();
  void End();

  const std::string& Other() const { return m_strOther; }

  /// Those that nobody has sent before.
  std::vector<std::string> NewProjects() const;

  /// Full name of the file that was used last; "" when none was.
  const std::string& LastUsed() const { return m_strLastUsed; }

 private:
  std::string LookAtAll(bool last);
  std::string Note(const std::string& project, const CSendingNote& note, const std::string& why);

  std::map<std::string, CSendingNote> m_mapNotes;  // by project
  std::int64_t m_llLookedMs = 0;
  std::string m_strLastUsed;
  std::string m_strWhyNot;
  std::string m_strOther;
};
