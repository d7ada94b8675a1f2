// Put plan: what of a put has to be sent, and how.
//
// What is known of a file: its facts here, its size at the server, its entry in
// the inventory and in the note of damage. Only where these leave it open is
// the file read, or the end of what the server holds of it.

#include "transfer/PutPlan.h"

#include <algorithm>
#include <utility>

#include "protocol/MeasurementFiles.h"
#include "protocol/ResultCodes.h"
#include "transfer/CancelToken.h"
#include "transfer/Insist.h"
#include "transfer/PutInventories.h"
#include "transfer/ServerInventory.h"
#include "transfer/Session.h"

namespace {

const char* const kNotRead = "the file cannot be read";
const char* const kChangedNow = "the file changed while it was read";
const char* const kReading = "comparing the files here with what the server had of them";

const char* const kReasonNames[kReasons] = {"",        "new",     "resumed",   "grown", "shortened",
                                            "changed", "damaged", "unchanged", "equal"};

EReason ReasonBySize(std::int64_t now, std::int64_t before) {
  if (now == before) return EReason::kChanged;
  return now > before ? EReason::kGrown : EReason::kShortened;
}

std::int64_t BytesOf(const std::vector<std::int64_t>& blocks, std::int64_t size) {
  std::int64_t bytes = 0;
  for (const std::int64_t block : blocks) {
    bytes += std::min(kDigestBlockBytes, size - block * kDigestBlockBytes);
  }
  return bytes;
}

// True when all of them are blocks that the entry has digests of.
bool AreBlocksOf(const std::vector<std::int64_t>& blocks, const SInventoryEntry& entry) {
  return !blocks.empty() &&
         static_cast<std::size_t>(blocks.back()) < entry.m_digest.m_vecBlocks.size();  // they rise
}

}  // namespace

const char* ReasonName(EReason reason) {
  return kReasonNames[static_cast<std::size_t>(reason)];
}

bool CPutPlan::IsRecording(const STransferItem& item) {
  return IsMeasurementFile(item.m_strLocal);
}

CPutPlan::CPutPlan(const STransferTools& tools, const SChoice& choice,
                   const CPutInventories& inventories)
    : m_tools(tools), m_choice(choice), m_inventories(inventories) {}

int CPutPlan::Make(std::vector<STransferItem>& items, const std::vector<SFileFacts>& facts) {
  std::vector<SHeld> held(items.size());
  int result = AskHeld(items, held);
  for (std::size_t i = 0; i < items.size() && result == RESULT_OK; ++i) {
    if (m_tools.m_cancel.IsCancelled()) return RESULT_OK;
    if (!items[i].m_bFinal) result = Decide(items[i], held[i], facts[i]);
  }
  if (result == RESULT_OK) DecideSideFiles(items);
  return result;
}

int CPutPlan::Decide(STransferItem& item, const SHeld& held, const SFileFacts& found) {
  SPutWay way;
  item.m_llMissing = item.m_llSize;
  const SInventoryEntry* const entry = m_inventories.Find(item);
  int result = RESULT_OK;
  const bool isNew = entry == nullptr && held.m_llSize == 0 && !held.m_bSides;
  if (isNew) way.m_facts = found;
  if (!isNew && !ReadFileFacts(item.m_strLocal, way.m_facts).empty()) {
    // It is told when it is opened.
  } else if (m_choice.m_bWhole) {
    item.m_eReason = held.m_llSize == 0 ? EReason::kNew : EReason::kChanged;
    SendWhole(item, held, way);
  } else if (entry == nullptr) {
    result = DecideUnknown(item, held, way);
  } else if (entry->m_bDigest) {
    result = DecideKnown(item, held, *entry, way);
  } else {
    result = DecidePlanned(item, held, *entry, way);
  }
  // A file that cannot be read costs the server's copy nothing.
  if (char byte = 0; way.m_bEmpty && ReadsFile(item.m_strLocal)(0, &byte, 1) < 0) {
    item.m_bFinal = true;
    item.m_nCode = ERROR_CODE_CLIENT_OPENFILE;
    item.m_strWhy = DescribeResult(item.m_nCode);
  }
  if (entry != nullptr) way.m_pFormer = std::make_shared<SInventoryEntry>(*entry);
  if (!item.m_bDone && !item.m_bFinal) m_ways[&item] = std::move(way);
  return result;
}

// Nothing tells which bytes the server has.
int CPutPlan::DecideUnknown(STransferItem& item, const SHeld& held, SPutWay& way) {
  const std::int64_t size = way.m_facts.m_llSize;
  if (m_inventories.Damage(item) != nullptr) {
    item.m_eReason = EReason::kDamaged;
    SendWhole(item, held, way);
  } else if (held.m_bSides) {
    return LookAtSides(item, held, way);
  } else if (held.m_llSize <= 0) {
    item.m_eReason = EReason::kNew;
  } else if (!IsRecording(item) || held.m_llSize > size) {
    item.m_eReason = ReasonBySize(size, held.m_llSize);
    SendWhole(item, held, way);
  } else if (held.m_llSize == size) {
    Done(item, EReason::kEqual, nullptr, way);
  } else {
    return CompareEnd(item, held, way);
  }
  return RESULT_OK;
}

// An earlier put of it has not come to its end.
int CPutPlan::DecidePlanned(STransferItem& item, const SHeld& held, const SInventoryEntry& entry,
                            SPutWay& way) {
  const std::int64_t size = way.m_facts.m_llSize;
  const bool same = !entry.m_bMixed && IsSameVersion(way.m_facts, entry.m_facts);
  item.m_eReason = EReason::kResumed;
  if (m_inventories.Damage(item) != nullptr) {
    item.m_eReason = EReason::kDamaged;
    SendWhole(item, held, way);
  } else if (held.m_llSize == 0) {
    item.m_eReason = EReason::kNew;
  } else if (!same || !IsRecording(item)) {
    if (!same) item.m_eReason = ReasonBySize(size, entry.m_facts.m_llSize);
    SendWhole(item, held, way);
  } else if (held.m_bSides) {
    return LookAtSides(item, held, way);
  } else if (held.m_llSize > size) {
    item.m_eReason = EReason::kShortened;
    SendWhole(item, held, way);
  } else {
    item.m_llMissing = size - held.m_llSize;
  }
  return RESULT_OK;
}

int CPutPlan::DecideKnown(STransferItem& item, const SHeld& held, const SInventoryEntry& entry,
                          SPutWay& way) {
  const std::int64_t size = way.m_facts.m_llSize, before = entry.m_facts.m_llSize;
  if (IsSameVersion(way.m_facts, entry.m_facts) && !m_choice.m_bChecksum) {
    return DecideSame(item, held, entry, way);
  }
  const bool isRead = (IsRecording(item) && size > before) ||
                      (size == before && (IsRecording(item) || m_choice.m_bChecksum ||
                                          !entry.m_digest.m_vecBlocks.empty()));
  if (isRead) return DecideRead(item, held, entry, way);
  item.m_eReason = ReasonBySize(size, before);
  SendWhole(item, held, way);
  return RESULT_OK;
}

// The file here has the bytes of the entry.
int CPutPlan::DecideSame(STransferItem& item, const SHeld& held, const SInventoryEntry& entry,
                         SPutWay& way) {
  const std::int64_t size = entry.m_facts.m_llSize;
  if (m_inventories.Damage(item) != nullptr) {
    Heal(item, held, entry, way);
    return RESULT_OK;
  }
  if (held.m_bSides) return LookAtSides(item, held, way);
  bool isThere = held.m_llSize == size;
  if (isThere && size == 0) {  // an empty one, or none
    const int result = Insist(m_tools, [&] {
      return m_tools.m_session.ReadFile(item.m_strServer,
                                        [](const char*, std::size_t) { return true; });
    });
    isThere = result == RESULT_OK;
    if (!isThere && result != ERROR_CODE_SERVER_OPENFILE) return result;
  }
  if (isThere) {
    Done(item, EReason::kUnchanged, &entry, way);
  } else if (held.m_llSize == 0) {
    item.m_eReason = EReason::kNew;
  } else if (IsRecording(item) && held.m_llSize < size) {
    return CompareEnd(item, held, way);
  } else {
    item.m_eReason = EReason::kDamaged;
    SendWhole(item, held, way);
  }
  return RESULT_OK;
}

// Its beginning is compared with the entry, block by block where there are
// digests of blocks.
int CPutPlan::DecideRead(STransferItem& item, const SHeld& held, const SInventoryEntry& entry,
                         SPutWay& way) {
  const std::int64_t size = way.m_facts.m_llSize, before = entry.m_facts.m_llSize;
  if (before > kBlocksAboveBytes && !m_bToldReading) m_tools.m_observer.OnWaiting(kReading);
  m_bToldReading = m_bToldReading || before > kBlocksAboveBytes;
  CFileDigest read;
  const bool whole = read.ReadTo(before, ReadsUnlessCancelled(m_tools.m_cancel, item.m_strLocal));
  const SFileDigest found = read.SoFar();
  SFileFacts now;
  if (!whole || !ReadFileFacts(item.m_strLocal, now).empty() || !(now == way.m_facts)) {
    item.m_bFinal = !m_tools.m_cancel.IsCancelled();
    item.m_strWhy = whole ? kChangedNow : kNotRead;
    return RESULT_OK;
  }
  if (size == before) {
    way.m_pEntry = std::make_shared<SInventoryEntry>(SInventoryEntry{now, true, found});
    if (found == entry.m_digest) return DecideSame(item, held, *way.m_pEntry, way);
  } else {
    way.m_pBeginning = std::make_shared<CFileDigest>(std::move(read));
  }
  item.m_eReason = ReasonBySize(size, before);
  const std::vector<std::int64_t>* const noted = m_inventories.Damage(item);
  if (found == entry.m_digest && noted == nullptr) return GoOn(item, held, before, way);
  std::vector<std::int64_t> blocks = DifferingBlocks(found, entry.m_digest);
  if (noted != nullptr) blocks.insert(blocks.end(), noted->begin(), noted->end());
  std::sort(blocks.begin(), blocks.end());
  blocks.erase(std::unique(blocks.begin(), blocks.end()), blocks.end());
  // More than half of them: then whole, since that can be gone on with.
  if (held.m_bSides || held.m_llSize != before || !AreBlocksOf(blocks, entry) ||
      (noted != nullptr && noted->empty()) ||
      blocks.size() > entry.m_digest.m_vecBlocks.size() / 2) {
    SendWhole(item, held, way);
  } else {
    way.m_vecBlocks = std::move(blocks);
    way.m_llHeld = before;
    way.m_bMixed = IsRecording(item);
    item.m_llMissing = BytesOf(way.m_vecBlocks, before) + size - before;
  }
  return RESULT_OK;
}

// The recording has grown behind the `before` bytes that the server had.
int CPutPlan::GoOn(STransferItem& item, const SHeld& held, std::int64_t before, SPutWay& way) {
  const std::int64_t size = way.m_facts.m_llSize;
  if (held.m_bSides) return LookAtSides(item, held, way);
  if (held.m_llSize == before) {
    item.m_llMissing = size - before;
    return RESULT_OK;
  }
  if (held.m_llSize > 0 && held.m_llSize <= size) return CompareEnd(item, held, way);
  SendWhole(item, held, way);
  return RESULT_OK;
}

// What the note of damage tells of a file that is here as it was.
void CPutPlan::Heal(STransferItem& item, const SHeld& held, const SInventoryEntry& entry,
                    SPutWay& way) {
  const std::vector<std::int64_t>& noted = *m_inventories.Damage(item);
  item.m_eReason = EReason::kDamaged;
  const DigestReader reader = ReadsUnlessCancelled(m_tools.m_cancel, item.m_strLocal);
  const bool canRepair =
      !held.m_bSides && held.m_llSize == entry.m_facts.m_llSize && AreBlocksOf(noted, entry) &&
      std::all_of(noted.begin(), noted.end(), [&](std::int64_t block) {
        SDigest digest;
        return DigestPart(block * kDigestBlockBytes, BytesOf({block}, held.m_llSize), reader,
                          digest) &&
               digest == entry.m_digest.m_vecBlocks[static_cast<std::size_t>(block)];
      });
  if (!canRepair) return SendWhole(item, held, way);
  way.m_vecBlocks = noted;
  way.m_llHeld = held.m_llSize;
  way.m_bRepair = true;
  if (way.m_pEntry == nullptr) {
    way.m_pEntry =
        std::make_shared<SInventoryEntry>(SInventoryEntry{way.m_facts, true, entry.m_digest});
  }
  item.m_llMissing = BytesOf(noted, held.m_llSize);
}

// The server changes them as ranges arrive: they are sent again with their
// recordings.
void CPutPlan::DecideSideFiles(std::vector<STransferItem>& items) {
  for (STransferItem& side : items) {
    if (!side.m_bDone || !IsSideFile(side.m_strLocal)) continue;
    const bool isSent = std::any_of(items.begin(), items.end(), [&](const STransferItem& item) {
      return !item.m_bDone && IsSideFileOf(side.m_strServer, item.m_strServer);
    });
    if (!isSent) continue;
    side.m_bDone = false;
    side.m_eReason = EReason::kChanged;
    side.m_llMissing = side.m_llSize;
    m_ways[&side].m_facts = side.m_pEntry->m_facts;
    m_ways[&side].m_pFormer = side.m_pEntry;
    side.m_pEntry.reset();
  }
}

void CPutPlan::SendWhole(STransferItem& item, const SHeld& held, SPutWay& way) const {
  way.m_bEmpty = IsRecording(item) && held.m_llSize != 0;
  way.m_vecBlocks.clear();
  way.m_pBeginning.reset();
  way.m_pEntry.reset();
  item.m_llMissing = item.m_llSize;
}

void CPutPlan::Done(STransferItem& item, EReason reason, const SInventoryEntry* entry,
                    SPutWay& way) const {
  item.m_bDone = true;
  item.m_nCode = RESULT_OK;
  item.m_eReason = reason;
  item.m_llMissing = 0;
  if (entry == nullptr) return;
  const auto known =
      std::make_shared<SInventoryEntry>(way.m_pEntry != nullptr ? *way.m_pEntry : *entry);
  known->m_facts = way.m_facts;
  item.m_pEntry = known;
}
