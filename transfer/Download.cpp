// Download: files are fetched under a name for parts and renamed when whole.

#include "transfer/Download.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <utility>

#include "platform/KQFile.h"
#include "platform/PathBytes.h"
#include "protocol/ResultCodes.h"
#include "transfer/CancelToken.h"
#include "transfer/Inventory.h"
#include "transfer/Names.h"
#include "transfer/Session.h"
#include "transfer/Sizes.h"

namespace fs = std::filesystem;

namespace {

constexpr int kMostKept = 10;
constexpr std::int64_t kComparedBytes = 64 << 10;

const char* const kChanged = "the file changed on the server while it was fetched";
const char* const kTooMuch = "the server tells more bytes in all than there can be";
const char* const kDiffers = "its bytes are not those that the inventory of the project tells";
const char* const kManyKept = "too many copies of it have been kept here";
const char* const kNotWhole = "the file did not arrive whole";

bool IsDigestKnown(const STransferItem& item) {
  return item.m_pEntry != nullptr && item.m_pEntry->m_bDigest;
}

// Times and modes are no part of what makes a file whole: a file system that
// keeps none still holds the bytes.
void TakeFacts(const STransferItem& item) {
  SFileFacts facts;
  if (item.m_pEntry == nullptr || !ReadFileFacts(item.m_strLocal, facts).empty()) return;
  if (!(facts == item.m_pEntry->m_facts)) SetFileFacts(item.m_strLocal, item.m_pEntry->m_facts);
}

DigestReader CancelledRead(const CCancelToken& cancel, const std::string& path) {
  return [&cancel, reader = ReadsFile(path)](std::int64_t at, char* data, std::size_t size) {
    return cancel.IsCancelled() ? std::int64_t{-1} : reader(at, data, size);
  };
}

// -1 for anything that is no file of its own.
std::int64_t OwnFileSize(const std::string& file) {
  const fs::path path = PathOf(file);
  std::error_code error;
  if (!fs::is_regular_file(fs::symlink_status(path, error))) return -1;
  const std::uintmax_t size = fs::file_size(path, error);
  return error ? -1 : static_cast<std::int64_t>(size);
}

// True for what PartName makes of the file name and some size.
bool IsPartOf(const std::string& entry, const std::string& fileName) {
  const std::string ending = ".part";
  if (entry.size() <= fileName.size() + 1 + ending.size()) return false;
  if (entry.compare(0, fileName.size() + 1, fileName + ".") != 0) return false;
  const std::size_t digitsEnd = entry.size() - ending.size();
  if (entry.compare(digitsEnd, ending.size(), ending) != 0) return false;
  return std::all_of(entry.begin() + static_cast<std::ptrdiff_t>(fileName.size()) + 1,
                     entry.begin() + static_cast<std::ptrdiff_t>(digitsEnd),
                     [](char c) { return c >= '0' && c <= '9'; });
}

// The entries of a directory that may be parts; read once for each directory.
class CPartLists {
 public:
  const std::set<std::string>& In(const fs::path& directory) {
    const auto [list, isNew] = m_lists.try_emplace(BytesOf(directory));
    std::error_code error;
    if (isNew) {
      for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
           entry.increment(error)) {
        if (entry->path().extension() == ".part") {
          list->second.insert(BytesOf(entry->path().filename()));
        }
      }
    }
    return list->second;
  }

 private:
  std::map<std::string, std::set<std::string>> m_lists;
};

void RemoveStaleParts(const STransferItem& item, CPartLists& lists) {
  const fs::path local = PathOf(item.m_strLocal);
  const std::string name = BytesOf(local.filename());
  const std::string valid = BytesOf(PathOf(PartPath(item)).filename());
  const std::set<std::string>& parts = lists.In(local.parent_path());
  for (auto part = parts.lower_bound(name + "."); part != parts.end(); ++part) {
    if (part->compare(0, name.size(), name) != 0) break;
    std::error_code ignored;
    if (*part != valid && IsPartOf(*part, name)) {
      fs::remove(local.parent_path() / PathOf(*part), ignored);
    }
  }
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

std::string PartPath(const STransferItem& item) {
  const fs::path local = PathOf(item.m_strLocal);
  return BytesOf(local.parent_path() / PathOf(PartName(BytesOf(local.filename()), item.m_llSize)));
}

CDownload::CDownload(const STransferTools& tools, std::string into,
                     const std::vector<STransferItem>& items, bool overwrite)
    : CTransfer(tools), m_strInto(std::move(into)), m_items(items), m_bOverwrite(overwrite) {}

void CDownload::Compare(std::vector<STransferItem>& items, bool checksum, bool change) const {
  CPartLists lists;
  for (STransferItem& item : items) {
    if (item.m_bFinal) continue;
    item.m_bDone = IsWhole(item, checksum);
    if (item.m_bDone && change) TakeFacts(item);
    if (item.m_bDone) continue;
    if (change) RemoveStaleParts(item, lists);
    const std::int64_t have = OwnFileSize(PartPath(item));
    item.m_llMissing =
        have > item.m_llSize ? item.m_llSize : item.m_llSize - std::max<std::int64_t>(have, 0);
  }
}

bool CDownload::IsWhole(const STransferItem& item, bool checksum) const {
  if (OwnFileSize(item.m_strLocal) != item.m_llSize) return false;
  if (!IsDigestKnown(item)) return true;
  SFileFacts facts;
  if (!ReadFileFacts(item.m_strLocal, facts).empty()) return false;
  if (!checksum && IsSameFileTime(facts.m_llTime, item.m_pEntry->m_facts.m_llTime)) return true;
  return HasDigest(item, item.m_strLocal, CFileDigest());
}

// @param digest of what has passed of it; the rest is read
bool CDownload::HasDigest(const STransferItem& item, const std::string& path,
                          CFileDigest digest) const {
  SFileDigest found;
  return digest.Finish(item.m_llSize, CancelledRead(m_cancel, path), found) &&
         found == item.m_pEntry->m_digest;
}

// Makes the directories, and sees to it that nothing leads out of the target
// directory. Returns why the item cannot be fetched.
std::string CDownload::Prepare(const STransferItem& item) {
  const fs::path part = PathOf(PartPath(item));
  std::error_code error;
  if (m_made.count(BytesOf(part.parent_path())) == 0) {
    fs::path directory = PathOf(m_strInto);
    for (const fs::path& component : part.lexically_relative(PathOf(m_strInto)).parent_path()) {
      directory /= component;
      if (fs::is_symlink(fs::symlink_status(directory, error))) {
        return BytesOf(directory) + " is a symbolic link";
      }
    }
    fs::create_directories(directory, error);
    if (error) return BytesOf(directory) + ": " + error.message();
    m_made.insert(BytesOf(part.parent_path()));
  }
  if (fs::is_directory(PathOf(item.m_strLocal), error)) return item.m_strLocal + " is a directory";
  const std::int64_t have = OwnFileSize(BytesOf(part));
  if (have < 0 || have > item.m_llSize) fs::remove(part, error);
  return "";
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
  const std::int64_t have = IsDigestKnown(item) ? 0 : OwnFileSize(part);
  if (have <= 0) return RESULT_OK;
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
  std::error_code ignored;
  if (got != have - begin || here != there) fs::remove(PathOf(part), ignored);
  return RESULT_OK;
}

// Reads what is here of an item whose digest is known, and cuts it where it is
// of another version.
CFileDigest CDownload::CountPart(const STransferItem& item) const {
  CFileDigest digest;
  const std::string part = PartPath(item);
  const std::int64_t have = IsDigestKnown(item) ? OwnFileSize(part) : 0;
  if (have <= 0) return digest;
  digest.ReadTo(have, CancelledRead(m_cancel, part));
  const std::vector<SDigest>& told = item.m_pEntry->m_digest.m_vecBlocks;
  const auto whole = static_cast<std::ptrdiff_t>(std::min(told.size(), digest.Blocks().size()));
  const auto differs =
      std::mismatch(told.begin(), told.begin() + whole, digest.Blocks().begin()).first;
  if (differs - told.begin() == whole) return digest;
  const std::int64_t same = (differs - told.begin()) * kDigestBlockBytes;
  std::error_code error;
  fs::resize_file(PathOf(part), static_cast<std::uintmax_t>(same), error);
  CFileDigest rest;
  rest.ReadTo(same, CancelledRead(m_cancel, part));
  return rest;
}

int CDownload::Start(const Batch& batch) {
  std::vector<CFileDigest> digests;
  std::vector<Channel_Key_Value> records;
  for (const STransferItem* item : batch) {
    Channel_Key_Value record;
    record.m_strPath = BelowInto(*item);
    record.m_strName = item->m_strServer;
    record.m_llSize = item->m_llSize;
    records.push_back(record);
    // What is here of it is read now: later the server would wait.
    digests.push_back(CountPart(*item));
  }
  m_started = batch;
  return m_session.StartDownload(records, m_strInto, std::move(digests));
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
  bytes = OwnFileSize(PartPath(item));
  return RESULT_OK;
}

std::string CDownload::BelowInto(const STransferItem& item) const {
  return BytesOf(PathOf(PartPath(item)).lexically_relative(PathOf(m_strInto)));
}

// What has the length and the digest that were told is whole, whatever the
// server has in its place by now.
int CDownload::Verify(const Batch& ended) {
  Batch asked;
  std::vector<std::string> names;
  for (STransferItem* const item : ended) {
    item->m_nCode = 0;
    if (IsDigestKnown(*item) && OwnFileSize(PartPath(*item)) == item->m_llSize) {
      if (const int finished = Finish(*item); finished != RESULT_OK) return finished;
    } else {
      asked.push_back(item);
      names.push_back(item->m_strServer);
    }
  }
  std::vector<std::int64_t> sizes;
  const int result = m_session.AskSizes(names, sizes);
  if (result != RESULT_OK) return result;
  for (std::size_t i = 0; i < asked.size(); ++i) {
    STransferItem& item = *asked[i];
    if (sizes[i] != item.m_llSize) {
      ChangeSize(item, sizes[i]);
    } else if (const int finished = Finish(item); finished != RESULT_OK) {
      return finished;
    }
  }
  return RESULT_OK;
}

void CDownload::ChangeSize(STransferItem& item, std::int64_t size) const {
  std::error_code ignored;
  fs::remove(PathOf(PartPath(item)), ignored);
  item.m_strWhy = kChanged;
  item.m_llSize = 0;
  std::int64_t total = 0;
  for (const STransferItem& other : m_items) total = AddSizes(total, other.m_llSize);
  TakeSize(item, size, total);
}

// @return 1, or why the server could not be asked again
int CDownload::Finish(STransferItem& item) {
  const std::string part = PartPath(item);
  if (OwnFileSize(part) != item.m_llSize) {
    item.m_strWhy = kNotWhole;
    return RESULT_OK;
  }
  bool same = true;
  const int result = IsDigestKnown(item) ? JudgeBytes(item, part, same) : RESULT_OK;
  if (result != RESULT_OK || !same || !PutAside(item)) return result;
  std::error_code error;
  fs::rename(PathOf(part), PathOf(item.m_strLocal), error);
  item.m_bDone = !error;
  if (error) item.m_strWhy = error.message();
  if (item.m_bDone) TakeFacts(item);
  return RESULT_OK;
}

// Blocks that differ are fetched once more now; a file without blocks is, from
// its beginning, in the next round.
int CDownload::JudgeBytes(STransferItem& item, const std::string& part, bool& same) {
  const auto record = std::find(m_started.begin(), m_started.end(), &item) - m_started.begin();
  CFileDigest digest = m_session.TakeDigest(static_cast<std::size_t>(record));
  const SFileDigest& told = item.m_pEntry->m_digest;
  SFileDigest found;
  const bool whole = digest.Finish(item.m_llSize, CancelledRead(m_cancel, part), found);
  same = whole && found == told;
  if (same) return RESULT_OK;
  const bool byBlocks = whole && !told.m_vecBlocks.empty();
  if (byBlocks) {
    const int result = FetchBlocks(item, part, DifferingBlocks(found, told));
    same = result == RESULT_OK && HasDigest(item, part, CFileDigest());
    if (same || result != RESULT_OK) return result;
  }
  item.m_strWhy = kDiffers;
  if (m_cancel.IsCancelled()) return RESULT_OK;
  item.m_bFinal = byBlocks || !m_differing.insert(&item).second;
  std::error_code ignored;
  fs::remove(PathOf(part), ignored);
  return RESULT_OK;
}

int CDownload::FetchBlocks(const STransferItem& item, const std::string& part,
                           const std::vector<std::int64_t>& blocks) {
  CKQFile file;
  if (!file.KQOpen(part, "r+b")) return ERROR_CODE_CLIENT_CREATEFILE;
  for (std::size_t i = 0; i < blocks.size();) {
    const std::int64_t begin = blocks[i] * kDigestBlockBytes;
    std::int64_t end = begin;
    for (; i < blocks.size() && blocks[i] * kDigestBlockBytes == end; ++i) end += kDigestBlockBytes;
    std::int64_t at = begin;
    const int result = m_session.ReadFile(
        item.m_strServer,
        [&](const char* data, std::size_t size) {
          if (m_cancel.IsCancelled() || !file.WriteEx(at, data, static_cast<int>(size))) {
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

// Keeps what lies in the file's place under another name.
bool CDownload::PutAside(STransferItem& item) const {
  std::error_code error;
  if (m_bOverwrite || OwnFileSize(item.m_strLocal) < 0) return true;
  std::string kept = item.m_strLocal + "~";
  for (int i = 1; i < kMostKept && fs::exists(fs::symlink_status(PathOf(kept), error)); ++i)
    kept += "~";
  if (fs::exists(fs::symlink_status(PathOf(kept), error))) {
    item.m_strWhy = kManyKept;
    return false;
  }
  fs::rename(PathOf(item.m_strLocal), PathOf(kept), error);
  if (error) item.m_strWhy = error.message();
  return !error;
}
