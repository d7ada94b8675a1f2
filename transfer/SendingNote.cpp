// Who is sending: one record a run, written before the others are read.
//
// They are moved by the same messages as all files. Nothing on the server
// orders two runs but what they find there: who is sending goes before who
// wants to, and of two that want to, the one with the smaller name.

#include "transfer/SendingNote.h"

#include <algorithm>
#include <cstdio>
#include <random>
#include <utility>

#include "platform/Identity.h"
#include "platform/System.h"
#include "protocol/ResultCodes.h"
#include "transfer/CancelToken.h"
#include "transfer/Insist.h"
#include "transfer/Inventory.h"
#include "transfer/ProjectClient.h"
#include "transfer/ProjectPath.h"
#include "transfer/SealedText.h"
#include "transfer/ServerInventory.h"
#include "transfer/Session.h"

namespace {

constexpr int kLookMs = 10000;
constexpr int kRestMs = 20;
constexpr int kPatienceMs = 3000;  // with others that come at the same time
constexpr std::string_view kSending = "sending";
constexpr std::string_view kWanting = "wanting";

const char* const kIsSent = "is being sent by ";
const char* const kTakenOver = "was taken over by ";
const char* const kSomebody = "somebody unknown";
const char* const kGone = "the note of who is sending it is gone: it was deleted or taken over";

bool ParseRecord(std::string_view text, SSendingRecord& record) {
  if (!Unseal(text)) return false;
  std::string_view line = TakeUpTo(text, '\n');
  if (!UnescapeName(TakeUpTo(line, ' '), record.m_strRun) || record.m_strRun.empty()) return false;
  if (!UnescapeName(TakeUpTo(line, ' '), record.m_strWorkstation)) return false;
  if (!ParseNumber(TakeUpTo(line, ' '), record.m_llCount)) return false;
  if (!ParseNumber(TakeUpTo(line, ' '), record.m_llAlive)) return false;
  const std::string_view state = TakeUpTo(line, ' ');
  record.m_bSending = state == kSending;
  return (record.m_bSending || state == kWanting) && UnescapeName(line, record.m_strBy);
}

std::int64_t Position(int slot) {
  return std::int64_t{kSendingSlotBytes} * slot;
}

std::string WhyFailed(int result) {
  return "cannot note who is sending it: " + DescribeResult(result);
}

}  // namespace

std::string RunName() {
  std::random_device random;
  char text[32];
  std::snprintf(text, sizeof text, "%08x%08x", random(), random());
  return text;
}

std::string SendingSlot(const SSendingRecord& record) {
  std::string by = record.m_strBy;
  for (;; by.pop_back()) {
    std::string slot =
        Seal(EscapeName(record.m_strRun) + " " + EscapeName(record.m_strWorkstation) + " " +
             std::to_string(record.m_llCount) + " " + std::to_string(record.m_llAlive) + " " +
             std::string(record.m_bSending ? kSending : kWanting) + " " + EscapeName(by) + "\n");
    slot.resize(std::max(slot.size(), kSendingSlotBytes), '\0');
    if (slot.size() == kSendingSlotBytes || by.empty()) return slot;
  }
}

std::map<int, SSendingRecord> ParseSendingSlots(std::string_view file) {
  std::map<int, SSendingRecord> records;
  for (int slot = 0; slot < kSendingSlots && !file.empty(); ++slot) {
    std::string_view text = file.substr(0, kSendingSlotBytes);
    file.remove_prefix(text.size());
    const std::size_t last = text.find_last_not_of('\0');
    if (last == std::string_view::npos) continue;
    SSendingRecord record;
    if (!ParseRecord(text.substr(0, last + 1), record)) {
      record = SSendingRecord();
      record.m_strBy = kSomebody;
    }
    records[slot] = record;
  }
  return records;
}

CSendingNote::CSendingNote(const STransferTools& tools, const std::string& project,
                           std::string workstation)
    : m_tools(tools), m_strPlace(project + "\\" + kSendingNoteName) {
  m_mine.m_strRun = RunName();
  m_mine.m_strWorkstation = std::move(workstation);
  m_mine.m_strBy = UserAtHost();
}

int CSendingNote::Read(Records& records) {
  std::string text;
  const int result =
      m_tools.m_session.ReadFile(m_strPlace, [&text](const char* data, std::size_t size) {
        text.append(data, std::min(size, kSendingSlots * kSendingSlotBytes - text.size()));
        return true;
      });
  records = ParseSendingSlots(text);
  return result;
}

// What this run is, and empty slots for others.
CSession::Parts CSendingNote::Record(const std::vector<int>& dead) {
  CSession::Parts parts;
  for (const int slot : dead) parts[Position(slot)] = std::string(kSendingSlotBytes, '\0');
  m_mine.m_llAlive = System().WallSeconds();
  for (const int slot : m_slots) parts[Position(slot)] = SendingSlot(m_mine);
  return parts;
}

int CSendingNote::WriteAndRead(const std::vector<int>& dead, Records& records) {
  std::string text;
  const int result = m_tools.m_session.WritePartsAndRead(m_strPlace, Record(dead), text,
                                                         kSendingSlots * kSendingSlotBytes);
  records = ParseSendingSlots(text);
  return result;
}

void CSendingNote::ChooseSlots(const Records& records) {
  std::random_device random;
  for (int& slot : m_slots) {
    do {
      slot = static_cast<int>(random() % kSendingSlots);
    } while (records.contains(slot) && records.size() < kSendingSlots);
  }
}

bool CSendingNote::IsMySlot(int slot) const {
  return std::find(m_slots.begin(), m_slots.end(), slot) != m_slots.end();
}

// An earlier one of this workstation: it would have the turn that we have.
bool CSendingNote::IsOurs(const SSendingRecord& other) const {
  return !m_mine.m_strWorkstation.empty() && other.m_strWorkstation == m_mine.m_strWorkstation;
}

// One that sends beside one that sends has taken over, or was taken over and
// does not know yet: the count tells.
bool CSendingNote::GivesWayTo(const SSendingRecord& other) const {
  if (other.m_strRun.empty()) return false;
  const bool isSmaller = other.m_strRun < m_mine.m_strRun;
  if (!m_mine.m_bSending) return other.m_bSending || isSmaller;
  if (!other.m_bSending) return false;
  return other.m_llCount == m_mine.m_llCount ? isSmaller : other.m_llCount > m_mine.m_llCount;
}

std::string CSendingNote::GiveWay(const SSendingRecord& other, const char* why) {
  m_strOther = other.m_strBy;
  const std::string alive =
      other.m_llAlive == 0 ? "" : " (last sign of life " + InventoryTime(other.m_llAlive) + ")";
  return why + other.m_strBy + alive;
}

std::string CSendingNote::Begin(bool takeOver, const std::function<void()>& ahead) {
  Records records;
  const int result = Insist(m_tools, [&] { return Read(records); });
  if (result != RESULT_OK && result != ERROR_CODE_SERVER_OPENFILE) return WhyFailed(result);
  m_bNew = result != RESULT_OK;
  std::vector<int> dead;
  for (const auto& [slot, record] : records) {
    m_mine.m_llCount = std::max(m_mine.m_llCount, record.m_llCount);
    if (takeOver || IsOurs(record)) {
      dead.push_back(slot);
    } else if (record.m_bSending) {
      return GiveWay(record, kIsSent);
    }
  }
  ++m_mine.m_llCount;
  ChooseSlots(records);
  return Enter(std::move(dead), takeOver, ahead);
}

// Goes on until the record stands there as written, and nobody else who counts.
std::string CSendingNote::Enter(std::vector<int> dead, bool takeOver,
                                const std::function<void()>& ahead) {
  for (int waited = 0;; waited += kRestMs) {
    Records records;
    m_bIn = true;
    const int result = Insist(m_tools, [&] {
      if (m_mine.m_bSending) ahead();
      return WriteAndRead(dead, records);
    });
    if (result != RESULT_OK && result != ERROR_CODE_SERVER_OPENFILE) return WhyFailed(result);
    dead.clear();
    bool isMine = false;
    const SSendingRecord* other = nullptr;
    for (const auto& [slot, record] : records) {
      if (record.m_strRun == m_mine.m_strRun) {
        isMine = isMine || (IsMySlot(slot) && record.m_bSending == m_mine.m_bSending);
      } else if (IsOurs(record) || (takeOver && record.m_llCount < m_mine.m_llCount)) {
        dead.push_back(slot);
      } else if (other == nullptr || GivesWayTo(record)) {
        other = &record;
      }
    }
    const bool isAlone = other == nullptr || (m_mine.m_bSending && !GivesWayTo(*other));
    if (isMine && isAlone && dead.empty()) {
      m_bAlone = m_mine.m_bSending;
      if (m_bAlone) return "";
      m_mine.m_bSending = true;
      continue;
    }
    if (m_tools.m_cancel.IsCancelled()) break;
    if (!isAlone && (GivesWayTo(*other) || waited > kPatienceMs)) {
      End();
      return GiveWay(*other, kIsSent);
    }
    if (waited > kPatienceMs) break;
    if (!isMine && !m_mine.m_bSending) ChooseSlots(records);
    if (!isAlone) m_tools.m_cancel.Sleep(kRestMs);
  }
  End();
  return m_tools.m_cancel.IsCancelled() ? "interrupted" : kGone;
}

std::string CSendingNote::Look(bool last) {
  Records records;
  int result = last ? Insist(m_tools, [&] { return Read(records); }) : Read(records);
  const bool isGone = result == ERROR_CODE_SERVER_OPENFILE;
  if (result != RESULT_OK && !isGone && last) return WhyFailed(result);
  if (result != RESULT_OK && !isGone) {
    m_tools.m_session.Abort();  // whoever needs the link next makes another
    return "";
  }
  std::vector<int> dead;
  bool isMine = false;
  const SSendingRecord* other = nullptr;
  for (const auto& [slot, record] : records) {
    if (record.m_strRun == m_mine.m_strRun) {
      isMine = true;
    } else if (record.m_bSending && GivesWayTo(record)) {
      other = &record;
    } else if (record.m_bSending) {
      dead.push_back(slot);  // taken over by this run, and not aware of it yet
    }
  }
  m_bAlone = isMine && other == nullptr;
  if (other != nullptr) return GiveWay(*other, kTakenOver);
  if (!isMine) return kGone;
  if (!last) result = m_tools.m_session.WriteParts(m_strPlace, Record(dead));
  if (result != RESULT_OK && !IsRefusal(result)) m_tools.m_session.Abort();
  return "";
}

// Whoever comes while the file is emptied finds its record gone and writes it
// again.
void CSendingNote::End() {
  if (!m_bIn || !m_tools.m_session.IsConnect()) return;
  m_bIn = false;
  if (m_bAlone) return m_tools.m_session.WriteLater(m_strPlace, true, {});
  CSession::Parts parts;
  for (const int slot : m_slots) parts[Position(slot)] = std::string(kSendingSlotBytes, '\0');
  m_tools.m_session.WriteLater(m_strPlace, false, parts);
}

CPutSending::CPutSending(const STransferTools& tools, const std::string& directory,
                         const std::vector<STransferItem>& items, const std::string& workstation) {
  for (const STransferItem& item : items) {
    if (item.m_bFinal) continue;
    const std::string project = ProjectOfItem(item);
    m_mapNotes.try_emplace(project, tools, directory + project, workstation);
  }
}

std::string CPutSending::Note(const std::string& project, const CSendingNote& note,
                              const std::string& why) {
  if (why.empty()) return "";
  m_strOther = note.Other();
  m_strWhyNot = m_mapNotes.size() == 1 ? why : project + ": " + why;
  return m_strWhyNot;
}

std::string CPutSending::Begin(bool takeOver, const std::function<void()>& ahead) {
  m_llLookedMs = System().SteadyMilliseconds();
  for (auto& [project, note] : m_mapNotes) {
    m_strLastUsed = note.Place();
    if (!Note(project, note, note.Begin(takeOver, ahead)).empty()) break;
  }
  return m_strWhyNot;
}

std::string CPutSending::Look() {
  const std::int64_t now = System().SteadyMilliseconds();
  if (now - m_llLookedMs < kLookMs) return m_strWhyNot;
  m_llLookedMs = now;
  return LookAtAll(false);
}

std::string CPutSending::LookLast() {
  return LookAtAll(true);
}

std::string CPutSending::LookAtAll(bool last) {
  for (auto& [project, note] : m_mapNotes) {
    if (!m_strWhyNot.empty() || !Note(project, note, note.Look(last)).empty()) break;
  }
  return m_strWhyNot;
}

std::vector<std::string> CPutSending::NewProjects() const {
  std::vector<std::string> projects;
  for (const auto& [project, note] : m_mapNotes) {
    if (note.IsNew()) projects.push_back(project);
  }
  return projects;
}

void CPutSending::End() {
  for (auto& [project, note] : m_mapNotes) note.End();
}
