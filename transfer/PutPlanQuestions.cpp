// Put plan: what the server is asked about a file that is to be sent.

#include <algorithm>

#include "protocol/MeasurementFiles.h"
#include "protocol/ResultCodes.h"
#include "transfer/Insist.h"
#include "transfer/Names.h"
#include "transfer/PutInventories.h"
#include "transfer/PutPlan.h"
#include "transfer/Recording.h"
#include "transfer/ServerInventory.h"
#include "transfer/Session.h"

namespace {

constexpr std::int64_t kEndBytes = 64 << 10;

}  // namespace

std::vector<std::string> CPutPlan::Asked(const std::vector<STransferItem>& items) {
  std::vector<std::string> names;
  for (const STransferItem& item : items) {
    if (item.m_bFinal || !IsAskable(item.m_strServer)) continue;
    names.push_back(item.m_strServer);
    if (IsRecording(item)) names.push_back(SideFileName(item.m_strServer, kRangesExtension));
  }
  return names;
}

int CPutPlan::AskHeld(std::vector<STransferItem>& items, std::vector<SHeld>& held) {
  const std::vector<std::string> names = Asked(items);
  const std::vector<std::int64_t> expected(names.size(), 0);
  // Nothing is there, as a rule, that the inventory does not tell.
  std::vector<std::int64_t> sizes;
  int result =
      Insist(m_tools, [&] { return m_tools.m_session.AskExpectedSizes(names, expected, sizes); });
  if (result != RESULT_OK) return result;
  auto size = sizes.begin();
  for (std::size_t i = 0; i < items.size(); ++i) {
    const STransferItem& item = items[i];
    if (item.m_bFinal) continue;
    held[i].m_bSides = IsRecording(item);
    if (IsAskable(item.m_strServer)) {
      held[i].m_llSize = *size++;
      if (IsRecording(item)) held[i].m_bSides = *size++ != 0 || held[i].m_llSize < 0;
    } else if (!m_choice.m_bPlanOnly && m_inventories.Find(item) != nullptr) {
      result = Insist(m_tools, [&] {
        return m_tools.m_session.AskHeldSize(item.m_strServer, held[i].m_llSize);
      });
      if (result != RESULT_OK) return result;
    }
  }
  return RESULT_OK;
}

// Ranges that the server misses, and segments, as its side files tell. What
// cannot be told now is told when the file's turn comes.
int CPutPlan::LookAtSides(STransferItem& item, const SHeld& held, SPutWay& way) {
  item.m_eReason = EReason::kResumed;
  if (m_choice.m_bPlanOnly && !IsAskable(item.m_strServer)) return RESULT_OK;
  SRecording recording;
  int refused = RESULT_OK;
  const int result = Insist(m_tools, [&] {
    int asked = LookAtRecording(m_tools.m_session, item.m_strServer, way.m_facts.m_llSize, false,
                                recording);
    if (asked == ERROR_CODE_GETLOSTINFO && m_tools.m_session.LastAnswer() != RESULT_OK) {
      asked = m_tools.m_session.LastAnswer();
    }
    const bool isAnswer = asked == ERROR_CODE_LOSTINFO_NOFILE ||
                          asked == ERROR_CODE_LOSTINFO_RECORD ||
                          asked == ERROR_CODE_LOSTINFO_ACCESS ||
                          asked == ERROR_CODE_LOSTINFO_CONTENT || asked == kRequestUnknown;
    refused = isAnswer ? asked : static_cast<int>(RESULT_OK);
    return isAnswer ? static_cast<int>(RESULT_OK) : asked;
  });
  if (result != RESULT_OK) return result;
  if (refused != RESULT_OK || !recording.m_strWhy.empty()) {
    item.m_strWhy = refused != RESULT_OK ? DescribeResult(refused) : recording.m_strWhy;
    item.m_bFinal = m_choice.m_bPlanOnly;
    return RESULT_OK;
  }
  item.m_llMissing = recording.m_llMissing;
  const SInventoryEntry* const entry = m_inventories.Find(item);
  if (recording.m_bWhole) {
    item.m_eReason = EReason::kChanged;
  } else if (recording.m_llMissing < 0) {
    item.m_eReason = EReason::kShortened;
    SendWhole(item, held, way);
  } else if (recording.m_llMissing == 0 && entry == nullptr) {
    Done(item, EReason::kEqual, nullptr, way);
  } else if (recording.m_llMissing == 0 && entry->m_bDigest &&
             (way.m_pEntry != nullptr || IsSameVersion(way.m_facts, entry->m_facts))) {
    Done(item, EReason::kUnchanged, entry, way);
  }
  return RESULT_OK;
}

// The end of what the server holds tells whether that is a beginning of the
// file here.
int CPutPlan::CompareEnd(STransferItem& item, const SHeld& held, SPutWay& way) {
  const std::int64_t start = std::max<std::int64_t>(held.m_llSize - kEndBytes, 0);
  const auto length = static_cast<std::size_t>(held.m_llSize - start);
  std::string there, here(length, '\0');
  int result = Insist(m_tools, [&] {
    there.clear();
    return m_tools.m_session.ReadFile(
        item.m_strServer,
        [&there](const char* data, std::size_t size) {
          there.append(data, size);
          return there.size() <= 2 * static_cast<std::size_t>(kEndBytes);
        },
        start);
  });
  if (result != RESULT_OK && result != ERROR_CODE_SERVER_OPENFILE) return result;
  const std::int64_t got = ReadsFile(item.m_strLocal)(start, here.data(), length);
  if (got != static_cast<std::int64_t>(length) || there != here) {
    item.m_eReason = EReason::kChanged;
    SendWhole(item, held, way);
    return RESULT_OK;
  }
  item.m_eReason = EReason::kResumed;
  item.m_llMissing = way.m_facts.m_llSize - held.m_llSize;
  // A server that has just sent a file refuses the next one for a moment.
  std::int64_t ignored = 0;
  if (m_choice.m_bPlanOnly) return RESULT_OK;
  return Insist(m_tools, [&] { return m_tools.m_session.AskHeldSize(item.m_strServer, ignored); });
}
