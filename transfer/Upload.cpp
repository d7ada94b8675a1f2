// Upload: sends the files of a project in requests of a few.
//
// What side files tell of missing ranges is looked at before the library goes
// by it; a recording that cannot be gone on with is emptied and sent whole.

#include "transfer/Upload.h"

#include <algorithm>
#include <filesystem>

#include "platform/PathBytes.h"
#include "protocol/MeasurementFiles.h"
#include "protocol/ResultCodes.h"
#include "transfer/CancelToken.h"
#include "transfer/Inventory.h"
#include "transfer/Names.h"
#include "transfer/Session.h"
#include "transfer/Sizes.h"

namespace fs = std::filesystem;

namespace {

// How many recordings are held open at a time, and so the most of one request.
constexpr std::size_t kMostOpen = 128;

const char* const kNoRecording = "its recording did not arrive whole";
const char* const kChangedMeanwhile = "the file changed while it was sent";
const char* const kNotRead = "the file cannot be read again";
const char* const kSizesDiffer = "the file on the server is not as long as this one";

std::int64_t LocalSize(const std::string& path) {
  std::error_code error;
  const std::uintmax_t size = fs::file_size(PathOf(path), error);
  return error ? -1 : static_cast<std::int64_t>(size);
}

// True when the condition holds for a recording that the side file tells of.
template <typename Condition>
bool AnyRecordingOf(const STransferItem& side, const std::vector<STransferItem>& items,
                    Condition condition) {
  return std::any_of(items.begin(), items.end(), [&](const STransferItem& item) {
    return condition(item) && IsSideFileOf(side.m_strServer, item.m_strServer);
  });
}

void CutTo(std::vector<STransferItem*>& batch, std::size_t count) {
  if (batch.size() > count)
    batch.erase(batch.begin() + static_cast<std::ptrdiff_t>(count), batch.end());
}

void Judge(STransferItem& item, std::int64_t missing, const std::string& why) {
  item.m_bDone = missing == 0 && why.empty();
  if (item.m_bDone) return;
  item.m_nCode = 0;
  item.m_strWhy = why.empty() ? kSizesDiffer : why;
}

// @param held bytes that the server has of it, @param size those that are here
void JudgeBySize(STransferItem& item, std::int64_t held, std::int64_t size) {
  const bool possible = held >= 0;
  Judge(item, possible ? size - held : -1, possible ? "" : WhyNoSize(held));
}

}  // namespace

CUpload::CUpload(const STransferTools& tools, const std::vector<STransferItem>& items,
                 PutWays& ways, bool digests, std::function<void(bool)> between,
                 std::function<std::string(const std::string&)> whyLater)
    : CTransfer(tools),
      m_items(items),
      m_ways(ways),
      m_between(std::move(between)),
      m_whyLater(std::move(whyLater)),
      m_bDigests(digests) {
  m_session.TakeDigests(digests);
  for (const auto& [item, way] : ways) {
    if (way.m_bEmpty) m_emptied.insert(item->m_strServer);
  }
}

// What is missing of a recording is told behind it: told before, or of one
// that did not arrive, it would hide what is missing indeed.
bool CUpload::GoesLast(const STransferItem& item) {
  return IsSideFile(item.m_strLocal);
}

bool CUpload::Waits(const STransferItem& item) {
  return IsSideFile(item.m_strLocal) &&
         AnyRecordingOf(item, m_items, [](const STransferItem& recording) {
           return !recording.m_bDone && !recording.m_bFinal;
         });
}

std::string CUpload::Prepare(const STransferItem& item) {
  const bool failed = IsSideFile(item.m_strLocal) &&
                      AnyRecordingOf(item, m_items, [](const STransferItem& recording) {
                        return !recording.m_bDone;
                      });
  return failed ? kNoRecording : "";
}

void CUpload::Ready(Batch& batch) {
  m_answers.clear();
  m_now.clear();
  m_nLookedAt = 0;
  OpenFiles(batch);
  // A file of which blocks are sent goes alone.
  const auto blocks = std::find_if(batch.begin(), batch.end(), [this](const STransferItem* item) {
    return !m_ways[item].m_vecBlocks.empty();
  });
  CutTo(batch, std::max<std::size_t>(static_cast<std::size_t>(blocks - batch.begin()), 1));
  AskForRanges(batch);
  if (!batch.empty()) SendBlocks(batch);
}

int CUpload::Start(const Batch& batch) {
  std::vector<Channel_Key_Value> records(batch.size());
  for (std::size_t i = 0; i < batch.size(); ++i) {
    records[i].m_strPath = batch[i]->m_strLocal;
    records[i].m_strName = batch[i]->m_strServer;
    records[i].m_llSize = m_ways[batch[i]].m_facts.m_llSize;
  }
  m_strLastSent = batch.front()->m_strServer;
  m_started = batch;
  std::vector<CFileDigest> digests(batch.size());
  for (std::size_t i = 0; i < batch.size(); ++i) {
    m_ways[batch[i]].m_bBegun = true;
    const std::shared_ptr<CFileDigest> beginning = std::move(m_ways[batch[i]].m_pBeginning);
    if (beginning != nullptr) digests[i] = std::move(*beginning);
  }
  return m_session.StartUpload(records, m_answers, std::move(digests));
}

bool CUpload::IsResumable(const STransferItem& item) const {
  return IsMeasurementFile(item.m_strLocal);
}

// What a file is once its last byte was read need not be asked when all have ended.
void CUpload::LookAhead(const Batch& batch) {
  const std::vector<int> statuses = m_session.GetStatuses();
  const std::size_t count = std::min(batch.size(), statuses.size());
  while (m_nLookedAt < count && statuses[m_nLookedAt] == RESULT_OK) Now(*batch[m_nLookedAt++]);
}

int CUpload::Verify(const Batch& ended) {
  const int result = VerifyItems(ended);
  std::size_t record = 0;
  for (STransferItem* item : ended) {
    while (record < m_started.size() && m_started[record] != item) ++record;
    if (item->m_bDone && m_bDigests) TakeEntry(*item, record);
  }
  m_now.clear();
  return result;
}

const CUpload::SNow& CUpload::Now(const STransferItem& item) {
  const auto [now, isFirst] = m_now.try_emplace(&item);
  if (isFirst) now->second.m_strWhyNot = ReadFileFacts(item.m_strLocal, now->second.m_facts);
  return now->second;
}

// The server holds as many bytes as the file has; were they of one version?
void CUpload::TakeEntry(STransferItem& item, std::size_t record) {
  CFileDigest digest = m_session.TakeDigest(record);
  SInventoryEntry entry;
  const std::string& why = Now(item).m_strWhyNot;
  entry.m_facts = Now(item).m_facts;
  const SPutWay& way = m_ways[&item];
  if (!why.empty() || !(entry.m_facts == way.m_facts)) {
    Judge(item, -1, why.empty() ? kChangedMeanwhile : why);
    item.m_bLater = why.empty();
    MakeStale(item);
  } else if (way.m_pEntry != nullptr) {
    item.m_pEntry = way.m_pEntry;  // all of it has been read before
  } else if (!digest.Finish(entry.m_facts.m_llSize, ReadsUnlessCancelled(m_cancel, item.m_strLocal),
                            entry.m_digest)) {
    Judge(item, -1, kNotRead);
  } else {
    entry.m_bDigest = true;
    item.m_pEntry = std::make_shared<SInventoryEntry>(std::move(entry));
  }
}

int CUpload::VerifyItems(const Batch& ended) {
  Batch same, others;
  for (STransferItem* item : ended) {
    if (IsResumable(*item) || !IsAskable(item->m_strServer)) {
      if (const int result = VerifyAlone(*item); result != RESULT_OK) return result;
    } else {
      const bool isSame = m_bDigests && Now(*item).m_strWhyNot.empty() &&
                          Now(*item).m_facts == m_ways[item].m_facts;
      (isSame ? same : others).push_back(item);
    }
  }
  const int result = VerifySizes(same, true);
  return result == RESULT_OK ? VerifySizes(others, false) : result;
}

// @param areSame as they were before they were sent. None is longer at the server then,
//                which emptied it first: a sum that is as it should be leaves none shorter.
int CUpload::VerifySizes(const Batch& items, bool areSame) {
  std::vector<std::string> names;
  std::vector<std::int64_t> here, sizes;
  for (const STransferItem* item : items) {
    names.push_back(item->m_strServer);
    here.push_back(Now(*item).m_strWhyNot.empty() ? Now(*item).m_facts.m_llSize : -1);
  }
  const int result =
      areSame ? m_session.AskExpectedSizes(names, here, sizes) : m_session.AskSizes(names, sizes);
  if (result != RESULT_OK) return result;
  for (std::size_t i = 0; i < items.size(); ++i) JudgeBySize(*items[i], sizes[i], here[i]);
  return RESULT_OK;
}

// Of a recording the library tells the server to empty its file before it opens
// this one; others it opens first.
bool CUpload::HoldOpen(const STransferItem& item) {
  if (!IsResumable(item)) return true;
  m_vecOpen.push_back(std::make_unique<CKQFile>());
  return m_vecOpen.back()->KQOpen(item.m_strLocal, "rb");
}

void CUpload::OpenFiles(Batch& batch) {
  m_vecOpen.clear();
  for (std::size_t i = 0; i < batch.size(); ++i) {
    if (m_vecOpen.size() == kMostOpen) return CutTo(batch, i);
    const bool opened = HoldOpen(*batch[i]);
    if (opened) TakeFacts(*batch[i]);
    const std::string later = m_whyLater ? m_whyLater(batch[i]->m_strLocal) : "";
    if (opened && later.empty()) continue;
    if (i == 0 && !later.empty()) {
      LeaveForLater(*batch[0], later);
    } else if (i == 0) {
      Fail(*batch[0], ERROR_CODE_CLIENT_OPENFILE);
    }
    return CutTo(batch, i);
  }
}

void CUpload::LeaveForLater(STransferItem& item, const std::string& why) {
  Judge(item, -1, why);
  item.m_bLater = true;
  item.m_bFinal = true;
}

// A file that is another than it was planned, or than it was in an earlier
// round, must not go on behind what the server holds of that one.
void CUpload::TakeFacts(const STransferItem& item) {
  SFileFacts now;
  SPutWay& way = m_ways[&item];
  if (!ReadFileFacts(item.m_strLocal, now).empty() || now == way.m_facts) return;
  const std::shared_ptr<const SInventoryEntry> former = way.m_pFormer;
  const bool begun = way.m_bBegun;
  way = SPutWay();
  way.m_facts = now;
  way.m_pFormer = former;
  way.m_bBegun = begun;
  if (IsResumable(item)) MakeStale(item);
}

void CUpload::MakeStale(const STransferItem& item) {
  m_stale.insert(item.m_strServer);
  m_ways[&item].m_bMixed = IsResumable(item);
}

// Puts blocks in their places; a recording goes on from there.
void CUpload::SendBlocks(Batch& batch) {
  STransferItem& item = *batch.front();
  SPutWay& way = m_ways[&item];
  if (way.m_vecBlocks.empty()) return;
  way.m_bBegun = true;
  const int result = m_session.SendBlocks(item.m_strServer, way.m_llHeld, way.m_vecBlocks,
                                          ReadsUnlessCancelled(m_cancel, item.m_strLocal));
  const bool isAll = way.m_llHeld == way.m_facts.m_llSize;
  if (result == RESULT_OK) {
    m_strLastSent = item.m_strServer;
    way.m_vecBlocks.clear();
    way.m_bMixed = false;
  } else if (result == 0) {  // the next round sends all of it
    Judge(item, -1, kSizesDiffer);
    way.m_vecBlocks.clear();
    MakeStale(item);
  } else {
    Fail(item, result);
  }
  if (result != RESULT_OK || isAll) batch.clear();
  if (result == RESULT_OK && isAll) EndAlone(item);
}

// What is written about them before the first byte is sent is true again.
int CUpload::EmptyStale(const Batch& batch) {
  bool any = false;
  for (const STransferItem* item : batch) {
    if (!m_stale.contains(item->m_strServer)) continue;
    if (const int result = m_session.EmptyFile(item->m_strServer); result != RESULT_OK) {
      return result;
    }
    m_stale.erase(item->m_strServer);
    m_emptied.insert(item->m_strServer);
    m_ways[item].m_bBegun = true;
    m_ways[item].m_bMixed = false;
    any = true;
  }
  if (any) m_between(true);
  return RESULT_OK;
}

// Few recordings have a side file on the server. One that has and cannot be
// gone on with goes alone.
void CUpload::AskForRanges(Batch& batch) {
  if (const int result = EmptyStale(batch); result != RESULT_OK) {
    Fail(*batch[0], result);
    batch.clear();
    return;
  }
  std::vector<std::string> names;
  for (const STransferItem* item : batch) {
    if (IsResumable(*item) && IsAskable(item->m_strServer)) {
      names.push_back(SideFileName(item->m_strServer, kRangesExtension));
    }
  }
  std::vector<std::int64_t> sizes;
  if (const int result = m_session.AskSizes(names, sizes); result != RESULT_OK) {
    Fail(*batch[0], result);
    batch.clear();
  }
  auto size = sizes.begin();
  for (std::size_t i = 0; i < batch.size(); ++i) {
    if (!IsResumable(*batch[i])) continue;
    SRecording recording;
    const bool hasSide = !IsAskable(batch[i]->m_strServer) || *size++ != 0;
    if (hasSide && !CanGoOn(*batch[i], i == 0, recording)) return CutTo(batch, i);
    if (recording.m_bWhole && i == 0 && batch.size() > 1) CutTo(batch, 1);
    m_answers.push_back(recording.m_answer);
  }
}

// @param isNext false: what is to be done about it waits for its turn
bool CUpload::CanGoOn(STransferItem& item, bool isNext, SRecording& recording) {
  int result = LookAtRecording(m_session, item.m_strServer, LocalSize(item.m_strLocal),
                               m_emptied.contains(item.m_strServer), recording);
  if (result == RESULT_OK && recording.m_strWhy.empty() && !recording.m_bWhole) return true;
  if (!isNext) return false;
  if (result == RESULT_OK && recording.m_bWhole && recording.m_strWhy.empty()) {
    result = m_session.EmptyFile(item.m_strServer);
    if (result == RESULT_OK) {
      m_ways[&item].m_bBegun = true;
      m_emptied.insert(item.m_strServer);
      return true;
    }
  }
  if (result != RESULT_OK) {
    Fail(item, result);
  } else {
    item.m_nCode = 0;
    item.m_strWhy = recording.m_strWhy;
  }
  return false;
}

int CUpload::VerifyAlone(STransferItem& item) {
  if (!IsResumable(item)) {
    std::int64_t held = 0;
    const int result = m_session.AskHeldSize(item.m_strServer, held);
    if (result == RESULT_OK) JudgeBySize(item, held, LocalSize(item.m_strLocal));
    return result;
  }
  SRecording recording;
  int result = LookAtRecording(m_session, item.m_strServer, LocalSize(item.m_strLocal),
                               m_emptied.contains(item.m_strServer), recording);
  if (result != RESULT_OK) return result;
  if (m_emptied.contains(item.m_strServer) && recording.m_llMissing == 0)
    result = ReportFilled(item, recording);
  if (result == RESULT_OK) Judge(item, recording.m_llMissing, recording.m_strWhy);
  return result;
}

// All of the file has just been sent: the server need not miss ranges of it.
int CUpload::ReportFilled(const STransferItem& item, const SRecording& recording) {
  const std::vector<FILEDATAPOS>& lost = recording.m_lost.m_vecLost;
  int result = RESULT_OK;
  for (std::size_t i = 0; i < lost.size() && result == RESULT_OK && !m_cancel.IsCancelled(); ++i) {
    if (!IsInFile(lost[i], item.m_llSize)) continue;
    result = m_session.ReportFilled(static_cast<int>(i), lost[i]);
  }
  return result;
}

int CUpload::AskKept(const STransferItem& item, std::int64_t& bytes) {
  if (!IsResumable(item)) return m_session.AskHeldSize(item.m_strServer, bytes);
  SRecording recording;
  const std::int64_t size = LocalSize(item.m_strLocal);
  const int result = LookAtRecording(m_session, item.m_strServer, size,
                                     m_emptied.contains(item.m_strServer), recording);
  bytes = recording.m_strWhy.empty() ? size - recording.m_llMissing : -1;
  return result;
}
