// Download: files are fetched under a name for parts and renamed when whole.

#include "transfer/Download.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "platform/KQFile.h"
#include "platform/PathBytes.h"
#include "protocol/ResultCodes.h"
#include "transfer/CancelToken.h"
#include "transfer/Inventory.h"
#include "transfer/PartLists.h"
#include "transfer/Sizes.h"

namespace fs = std::filesystem;

namespace {

constexpr std::int64_t kComparedBytes = 64 << 10;

const char* const kChanged = "the file changed on the server while it was fetched";
const char* const kTooMuch = "the server tells more bytes in all than there can be";
const char* const kDiffers = "its bytes are not those that the inventory of the project tells";
const char* const kNotWhole = "the file did not arrive whole";

bool IsDigestKnown(const STransferItem& item) {
  return item.m_pEntry != nullptr && item.m_pEntry->m_bDigest;
}

}  // namespace

void TakeSize(STransferItem& item, std::int64_t size, std::int64_t& total) {
  if (size < 0) {
    item.m_strWhy = WhyNoSize(size);
  } else if (size > INT64_MAX - total) {
    item.m_strWhy = kTooMuch;
  } else {
    item.m_llSize = size;
    total += size;
    return;
  }
  item.m_bFinal = true;
}

CDownload::CDownload(const STransferTools& tools, std::string into,
                     const std::vector<STransferItem>& items, bool overwrite)
    : CTransfer(tools),
      m_strInto(std::move(into)),
      m_items(items),
      m_bOverwrite(overwrite),
      m_directories(m_strInto),
      m_targets(m_strInto) {}

void CDownload::Compare(std::vector<STransferItem>& items, bool checksum, bool change) {
  CPartLists lists;
  for (STransferItem& item : items) {
    if (item.m_bFinal) continue;
    const bool mayBeHere = lists.HasDirectory(item);
    item.m_bDone = mayBeHere && IsWhole(item, checksum, change);
    if (item.m_bDone) continue;
    if (change) lists.RemoveStale(item);
    if (lists.MayHave(item)) m_begun.insert(&item);
    const std::int64_t have = PartSize(item);
    item.m_llMissing =
        have > item.m_llSize ? item.m_llSize : item.m_llSize - std::max<std::int64_t>(have, 0);
  }
}

// Times and modes are no part of what makes a file whole: a file system that
// keeps none still holds the bytes.
bool CDownload::IsWhole(STransferItem& item, bool checksum, bool change) const {
  std::error_code error;
  const SFileLook look = LookAtFile(item.m_strLocal, error, false);
  if (!error && !look.m_bRegular && fs::is_directory(PathOf(item.m_strLocal), error)) {
    item.m_strWhy = item.m_strLocal + " is a directory";
    item.m_bFinal = true;
  }
  if (!look.m_bRegular || look.m_llSize != item.m_llSize) return false;
  if (item.m_pEntry == nullptr) return true;
  const SFileFacts& told = item.m_pEntry->m_facts;
  const bool isSame = !checksum && IsSameFileTime(look.m_llTime, told.m_llTime);
  if (IsDigestKnown(item) && !isSame && !HasDigest(item, item.m_strLocal, CFileDigest())) {
    return false;
  }
  if (change && !(SFileFacts{look.m_llSize, look.m_llTime, look.m_nMode} == told)) {
    SetFileFacts(item.m_strLocal, told);
  }
  return true;
}

// @param digest of what has passed of it; the rest is read
bool CDownload::HasDigest(const STransferItem& item, const std::string& path,
                          CFileDigest digest) const {
  SFileDigest found;
  return digest.Finish(item.m_llSize, ReadsUnlessCancelled(m_cancel, path), found) &&
         found == item.m_pEntry->m_digest;
}

void CDownload::Ready(Batch& batch) {
  for (const STransferItem* item : batch) {
    const int result = CheckPart(*item);
    if (result == RESULT_OK) continue;
    Fail(*batch.front(), result);
    batch.clear();
    return;
  }
}

// Where no digest will tell, the end of what is here is compared with what the
// server has there. Other bytes: it is left of another version.
int CDownload::CheckPart(const STransferItem& item) {
  const std::string part = PartPath(item);
  const std::int64_t have = IsDigestKnown(item) ? 0 : PartSize(item);
  if (have <= 0 || have > item.m_llSize) return RESULT_OK;
  const std::int64_t begin = std::max<std::int64_t>(have - kComparedBytes, 0);
  std::string there;
  const int result = m_session.ReadFile(
      item.m_strServer,
      [&there](const char* data, std::size_t size) {
        there.append(data, size);
        return true;
      },
      begin, have - begin);
  if (result == ERROR_CODE_SERVER_OPENFILE) return RESULT_OK;  // the request will tell
  if (result != RESULT_OK) return result;
  std::string here(static_cast<std::size_t>(have - begin), '\0');
  const std::int64_t got = ReadsFile(part)(begin, here.data(), here.size());
  if (got != have - begin || here != there) RemovePart(item);
  return RESULT_OK;
}

// Reads what is here of an item whose digest is known, and cuts it where it is
// of another version.
CFileDigest CDownload::CountPart(const STransferItem& item) {
  CFileDigest digest;
  const std::string part = PartPath(item);
  const std::int64_t have = IsDigestKnown(item) ? PartSize(item) : 0;
  if (have <= 0 || have > item.m_llSize) return digest;
  digest.ReadTo(have, ReadsUnlessCancelled(m_cancel, part));
  const std::vector<SDigest>& told = item.m_pEntry->m_digest.m_vecBlocks;
  const auto whole = static_cast<std::ptrdiff_t>(std::min(told.size(), digest.Blocks().size()));
  const auto differs =
      std::mismatch(told.begin(), told.begin() + whole, digest.Blocks().begin()).first;
  if (differs - told.begin() == whole) return digest;
  const std::int64_t same = (differs - told.begin()) * kDigestBlockBytes;
  if (const SPart open = LookAtPart(item); open.m_pDirectory != nullptr) {
    std::unique_ptr<ISystemFile> file;
    open.m_pDirectory->OpenFile(open.m_place.m_strPart, EOpenMode::kUpdate, file);
    if (file != nullptr) file->Resize(same);
  }
  CFileDigest rest;
  rest.ReadTo(same, ReadsUnlessCancelled(m_cancel, part));
  return rest;
}

int CDownload::Start(const Batch& batch) {
  std::vector<CFileDigest> digests;
  std::vector<Channel_Key_Value> records;
  for (const STransferItem* item : batch) {
    Channel_Key_Value record;
    record.m_strPath = PartPath(*item).substr(m_strInto.size());
    record.m_strName = item->m_strServer;
    record.m_llSize = item->m_llSize;
    records.push_back(record);
    // What is here of it is read now: later the server would wait.
    digests.push_back(CountPart(*item));
  }
  m_started = batch;
  m_begun.insert(batch.begin(), batch.end());
  m_directories.Forget();  // by then somebody may have put others in their places
  m_targets.Forget();
  return m_session.StartDownload(records, m_strInto, std::move(digests),
                                 [this](std::size_t i) { return OpenPart(*m_started[i]); });
}

// The library takes a sum that the server told for the room that is needed.
std::string CDownload::WhyNotStarted(const Batch& batch, int code) {
  std::int64_t bytes = 0;
  for (const STransferItem* item : batch) bytes += item->m_llSize;
  const std::int64_t told = m_session.TotalTold();
  if (code != ERROR_CODE_CLIENT_DISKSPACE || told == bytes) return DescribeResult(code);
  return told < 0 ? WhyNoSize(told) : kChanged;
}

int CDownload::AskKept(const STransferItem& item, std::int64_t& bytes) {
  bytes = PartSize(item);
  return RESULT_OK;
}

// What has the length and the digest that were told is whole, whatever the
// server has in its place by now.
int CDownload::Verify(const Batch& ended) {
  Batch asked;
  std::vector<std::string> names;
  for (STransferItem* const item : ended) {
    item->m_nCode = 0;
    if (IsDigestKnown(*item)) {
      if (const SPart part = LookAtPart(*item); part.m_bWhole) {
        if (const int finished = Finish(*item, part); finished != RESULT_OK) return finished;
        continue;
      }
    }
    asked.push_back(item);
    names.push_back(item->m_strServer);
  }
  std::vector<std::int64_t> sizes;
  const int result = m_session.AskSizes(names, sizes);
  if (result != RESULT_OK) return result;
  for (std::size_t i = 0; i < asked.size(); ++i) {
    STransferItem& item = *asked[i];
    if (sizes[i] != item.m_llSize) {
      ChangeSize(item, sizes[i]);
    } else if (const int finished = Finish(item, LookAtPart(item)); finished != RESULT_OK) {
      return finished;
    }
  }
  return RESULT_OK;
}

void CDownload::ChangeSize(STransferItem& item, std::int64_t size) {
  RemovePart(item);
  item.m_strWhy = kChanged;
  item.m_llSize = 0;
  std::int64_t total = 0;
  for (const STransferItem& other : m_items) total = AddSizes(total, other.m_llSize);
  TakeSize(item, size, total);
}

// @return 1, or why the server could not be asked again
int CDownload::Finish(STransferItem& item, const SPart& part) {
  if (!part.m_bWhole) {
    item.m_strWhy = kNotWhole;
    return RESULT_OK;
  }
  bool same = true;
  const int result = IsDigestKnown(item) ? JudgeBytes(item, part, same) : RESULT_OK;
  if (result == RESULT_OK && same) GiveName(item, part);
  return result;
}

// Blocks that differ are fetched once more now; a file without blocks is, from
// its beginning, in the next round.
int CDownload::JudgeBytes(STransferItem& item, const SPart& part, bool& same) {
  const std::string path = PartPath(item);
  const auto record = std::find(m_started.begin(), m_started.end(), &item) - m_started.begin();
  CFileDigest digest = m_session.TakeDigest(static_cast<std::size_t>(record));
  const SFileDigest& told = item.m_pEntry->m_digest;
  SFileDigest found;
  const bool whole = digest.Finish(item.m_llSize, ReadsUnlessCancelled(m_cancel, path), found);
  same = whole && found == told;
  if (same) return RESULT_OK;
  const bool byBlocks = whole && !told.m_vecBlocks.empty();
  if (byBlocks) {
    const int result = FetchBlocks(item, part, DifferingBlocks(found, told));
    same = result == RESULT_OK && HasDigest(item, path, CFileDigest());
    if (same || result != RESULT_OK) return result;
  }
  item.m_strWhy = kDiffers;
  if (m_cancel.IsCancelled()) return RESULT_OK;
  item.m_bFinal = byBlocks || !m_differing.insert(&item).second;
  part.m_pDirectory->RemoveFile(part.m_place.m_strPart);
  return RESULT_OK;
}

int CDownload::FetchBlocks(const STransferItem& item, const SPart& part,
                           const std::vector<std::int64_t>& blocks) {
  std::unique_ptr<ISystemFile> opened;
  part.m_pDirectory->OpenFile(part.m_place.m_strPart, EOpenMode::kUpdate, opened);
  if (opened == nullptr) return ERROR_CODE_CLIENT_CREATEFILE;
  CFileHandle file(std::move(opened));
  for (std::size_t i = 0; i < blocks.size();) {
    const std::int64_t begin = blocks[i] * kDigestBlockBytes;
    std::int64_t end = begin;
    for (; i < blocks.size() && blocks[i] * kDigestBlockBytes == end; ++i) end += kDigestBlockBytes;
    std::int64_t at = begin;
    const int result = m_session.ReadFile(
        item.m_strServer,
        [&](const char* data, std::size_t size) {
          if (m_cancel.IsCancelled() || !file.WriteAt(at, data, static_cast<int>(size))) {
            return false;
          }
          at += static_cast<std::int64_t>(size);
          return true;
        },
        begin, std::min(end, item.m_llSize) - begin);
    m_session.CountAsMoved(at - begin);
    if (result != RESULT_OK) return result;
  }
  return RESULT_OK;
}
