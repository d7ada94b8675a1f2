// Verify: how one file is compared.

#include <algorithm>
#include <filesystem>
#include <utility>

#include "platform/PathBytes.h"
#include "protocol/MeasurementFiles.h"
#include "protocol/ResultCodes.h"
#include "transfer/CancelToken.h"
#include "transfer/LocalRecording.h"
#include "transfer/Names.h"
#include "transfer/Retry.h"
#include "transfer/Session.h"
#include "transfer/Sizes.h"
#include "transfer/Verify.h"

namespace fs = std::filesystem;

namespace {

constexpr std::int64_t kShowBytes = 1 << 20;
constexpr std::size_t kMostSegments = 10000;

const char* const kOpenRanges = "ranges of it are missing on the server";
const char* const kSegments = "it lies in segments on the server";
const char* const kOtherSegments = "it lies in segments on the server, not those of the file here";
const char* const kUnread = "it cannot be read to its end";

// For a digest of what has passed: nothing else is to be had.
std::int64_t ReadNothing(std::int64_t, char*, std::size_t) {
  return -1;
}

}  // namespace

/// What one side has of a file, and what that is by what it should be.
struct CVerification::SSide {
  EVerdict m_eVerdict = EVerdict::kUnknown;
  std::string m_strWhy;
  std::int64_t m_llSize = 0;
  bool m_bRead = false;
  SFileDigest m_digest;                   // where m_bRead
  std::vector<std::int64_t> m_vecBlocks;  // that differ

  void JudgeSize(std::int64_t size) {
    m_eVerdict = EVerdict::kChanged;
    m_strWhy = std::to_string(m_llSize) + " bytes instead of " + std::to_string(size);
  }
  void Judge(const SFileDigest& told) {
    m_eVerdict = m_digest == told ? EVerdict::kSame : EVerdict::kChanged;
    m_vecBlocks = DifferingBlocks(m_digest, told);
  }
};

int CVerification::Compare(const SFile& file) {
  m_progress.m_strFile = m_request.m_strProject + "/" + file.m_strPath;
  m_progress.m_llFileDone = 0;
  m_progress.m_llFileSize = std::max<std::int64_t>(file.m_llHeld, 0);
  const std::int64_t before = m_progress.m_llDone;
  Show();
  bool done = IsPieceOfMore(file);
  int result = RESULT_OK;
  if (!done && file.m_bSideFile) result = CompareRecording(file, done);
  if (result == RESULT_OK && !done) result = CompareOrdinary(file);
  m_progress.m_llDone = AddSizes(before, m_progress.m_llFileSize);
  ++m_progress.m_nFilesDone;
  return result;
}

// A segment or side file of a recording, which is compared with it.
bool CVerification::IsPieceOfMore(const SFile& file) const {
  return file.m_pEntry == nullptr && file.m_pLocal == nullptr &&
         m_stems.contains(StemOfPiece(file.m_strPath));
}

// A chain that was fetched or is to be sent: each of its files is compared with
// the one there.
bool CVerification::IsChainHere(const SFile& file) const {
  const std::string side = BytesOf(PathOf(file.m_strPath).replace_extension(kRangesExtension));
  const auto here = m_mapFiles.find(side);
  return here != m_mapFiles.end() && here->second.m_pLocal != nullptr;
}

// @param done false: it is compared like any other file
int CVerification::CompareRecording(const SFile& file, bool& done) {
  SLostInfo lost;
  CSession& session = m_tools.m_session;
  int result = session.AskLostInfo(file.m_strServer, lost);
  if (!session.IsConnect()) {
    m_tools.m_observer.OnReconnecting();
    result = session.Reopen();
    if (result == RESULT_OK) result = session.AskLostInfo(file.m_strServer, lost);
    if (!session.IsConnect()) return result;
  }
  SFileVerdict verdict{
      file.m_strPath, EVerdict::kUnknown, std::max<std::int64_t>(file.m_llHeld, 0), "", {}};
  done = true;
  if (result != RESULT_OK) {
    verdict.m_strWhy = DescribeResult(result);
  } else if (std::any_of(lost.m_vecLost.begin(), lost.m_vecLost.end(),
                         [](const FILEDATAPOS& range) { return range.llLen != 0; })) {
    verdict.m_strWhy = kOpenRanges;
  } else if (lost.m_vecBounds.empty() || IsChainHere(file)) {
    done = false;
    return RESULT_OK;
  } else if (file.m_pLocal == nullptr) {
    verdict.m_strWhy = kSegments;
  } else {
    return CompareSegments(file, lost.m_vecBounds);
  }
  Tell(std::move(verdict));
  return RESULT_OK;
}

// Segment i holds what lies here between two bounds.
int CVerification::CompareSegments(const SFile& file, const std::vector<std::int64_t>& bounds) {
  const std::int64_t size = file.m_pLocal->m_facts.m_llSize;
  SFileVerdict verdict{file.m_strPath, EVerdict::kUnknown, size, kOtherSegments, {}};
  if (bounds.size() > kMostSegments || bounds.front() < 0 || bounds.back() > size ||
      !std::is_sorted(bounds.begin(), bounds.end())) {
    Tell(std::move(verdict));
    return RESULT_OK;
  }
  verdict.m_eVerdict = EVerdict::kSame;
  verdict.m_strWhy = std::to_string(bounds.size() + 1) + " segments";
  const DigestReader reader = ReadsFile(file.m_pLocal->m_strPath);
  for (std::size_t i = 0; i <= bounds.size() && verdict.m_eVerdict == EVerdict::kSame; ++i) {
    const std::int64_t begin = i == 0 ? 0 : bounds[i - 1];
    const std::int64_t length = (i == bounds.size() ? size : bounds[i]) - begin;
    CFileDigest passed;
    const int result = Read(SegmentName(file.m_strServer, i), length + 1, passed);
    if (m_tools.m_cancel.IsCancelled()) return RESULT_OK;
    if (result != RESULT_OK && result != ERROR_CODE_SERVER_OPENFILE) return result;
    SFileDigest there;
    SDigest here;
    const bool whole = passed.Finish(length, ReadNothing, there);
    if (!DigestPart(begin, length, reader, here)) {
      verdict.m_eVerdict = EVerdict::kUnknown;
      verdict.m_strWhy = std::string(kUnread) + " here";
    } else if (!whole || there.m_whole != here) {
      verdict.m_eVerdict = EVerdict::kChanged;
      verdict.m_strWhy = "segment " + std::to_string(i) + " of it on the server";
    }
  }
  Tell(std::move(verdict));
  return RESULT_OK;
}

int CVerification::CompareOrdinary(const SFile& file) {
  const bool told = file.m_pEntry != nullptr && file.m_pEntry->m_bDigest;
  SSide there, here = LookHere(file);
  if (told || here.m_bRead) {
    const std::int64_t size = told ? file.m_pEntry->m_facts.m_llSize : here.m_llSize;
    const SFileDigest& digest = told ? file.m_pEntry->m_digest : here.m_digest;
    const int result = LookThere(file, size, digest, there);
    if (result != RESULT_OK) return result;
  } else if (file.m_pLocal == nullptr) {
    there.m_llSize = std::max<std::int64_t>(file.m_llHeld, 0);
    const bool extra = file.m_pEntry == nullptr;
    there.m_eVerdict = extra ? EVerdict::kExtra : EVerdict::kUnknown;
    if (extra) here.m_eVerdict = EVerdict::kSame;  // it need not be here
    if (!extra) there.m_strWhy = "not sent to its end; " + WhoIsSending(m_inventory.m_head);
  }
  if (m_tools.m_cancel.IsCancelled()) return RESULT_OK;
  // Of what the inventory does not tell the server need not have it.
  const bool onlyHere = there.m_eVerdict == EVerdict::kMissing && file.m_pEntry == nullptr;
  if (onlyHere && m_bInventory) {
    here.m_eVerdict = EVerdict::kExtra;
    there.m_eVerdict = EVerdict::kSame;
  }
  Combine(file, there, here);
  return RESULT_OK;
}

// What the inventory does not tell of is the same by itself.
CVerification::SSide CVerification::LookHere(const SFile& file) const {
  SSide side;
  side.m_eVerdict = EVerdict::kMissing;
  if (file.m_pLocal == nullptr) return side;
  const bool told = file.m_pEntry != nullptr && file.m_pEntry->m_bDigest;
  side.m_llSize = file.m_pLocal->m_facts.m_llSize;
  if (told && side.m_llSize != file.m_pEntry->m_facts.m_llSize) {
    side.JudgeSize(file.m_pEntry->m_facts.m_llSize);
    return side;
  }
  const DigestReader reader = ReadsFile(file.m_pLocal->m_strPath);
  const auto read = [&](std::int64_t at, char* data, std::size_t size) {
    return m_tools.m_cancel.IsCancelled() ? std::int64_t{-1} : reader(at, data, size);
  };
  char byte = 0;
  side.m_bRead = read(0, &byte, 1) >= 0 && CFileDigest().Finish(side.m_llSize, read, side.m_digest);
  side.m_eVerdict = side.m_bRead ? EVerdict::kSame : EVerdict::kUnknown;
  if (!side.m_bRead) side.m_strWhy = kUnread;
  if (side.m_bRead && told) side.Judge(file.m_pEntry->m_digest);
  return side;
}

// One of which the server tells no bytes may be empty, or not there.
int CVerification::LookThere(const SFile& file, std::int64_t size, const SFileDigest& told,
                             SSide& side) {
  side.m_llSize = std::max<std::int64_t>(file.m_llHeld, 0);
  const bool isKnown = IsAskable(file.m_strServer);
  if (isKnown && file.m_llHeld < 0) {
    side.m_strWhy = WhyNoSize(file.m_llHeld);
    return RESULT_OK;
  }
  if (side.m_llSize > 0 && side.m_llSize != size) {
    side.JudgeSize(size);
    return RESULT_OK;
  }
  CFileDigest passed;
  const int result = Read(file.m_strServer, size + 1, passed);
  if (result == ERROR_CODE_SERVER_OPENFILE) {
    side.m_eVerdict = side.m_llSize > 0 ? EVerdict::kUnknown : EVerdict::kMissing;
    if (side.m_llSize > 0) side.m_strWhy = DescribeResult(result);
    return RESULT_OK;
  }
  if (result != RESULT_OK || m_tools.m_cancel.IsCancelled()) return result;
  side.m_llSize = passed.Counted();
  side.m_bRead = passed.Finish(size, ReadNothing, side.m_digest);
  if (side.m_bRead) {
    side.Judge(told);
  } else {
    side.JudgeSize(size);
  }
  return RESULT_OK;
}

void CVerification::Combine(const SFile& file, const SSide& there, const SSide& here) {
  SFileVerdict verdict{file.m_strPath, there.m_eVerdict, there.m_llSize, there.m_strWhy,
                       there.m_vecBlocks};
  if (m_request.m_strLocal.empty()) return Tell(std::move(verdict));
  verdict.m_eVerdict = EVerdict::kSame;
  for (const EVerdict worst :
       {EVerdict::kChanged, EVerdict::kMissing, EVerdict::kExtra, EVerdict::kUnknown}) {
    if (there.m_eVerdict != worst && here.m_eVerdict != worst) continue;
    verdict.m_eVerdict = worst;
    break;
  }
  verdict.m_llSize = std::max(there.m_llSize, here.m_llSize);
  verdict.m_strWhy.clear();
  const auto add = [&verdict](const SSide& side, const char* place) {
    if (side.m_eVerdict == EVerdict::kSame) return;
    std::string& why = verdict.m_strWhy;
    if (!why.empty()) why += "; ";
    if (side.m_eVerdict != verdict.m_eVerdict)
      why += std::string(VerdictName(side.m_eVerdict)) + " ";
    why += place;
    if (!side.m_strWhy.empty()) why += ": " + side.m_strWhy;
  };
  add(there, "on the server");
  add(here, "here");
  const bool isSameOther = there.m_eVerdict == EVerdict::kChanged && there.m_bRead &&
                           here.m_bRead && there.m_digest == here.m_digest;
  if (isSameOther) verdict.m_strWhy += "; both hold the same";
  if (there.m_eVerdict != EVerdict::kChanged) verdict.m_vecBlocks = here.m_vecBlocks;
  Tell(std::move(verdict));
}

// What was read before a connection broke is not read again.
int CVerification::Read(const std::string& name, std::int64_t most, CFileDigest& digest) {
  CSession& session = m_tools.m_session;
  for (CRetry retry(m_tools.m_nRetries, m_tools.m_nRetrySeconds);;) {
    const std::int64_t before = digest.Counted();
    int result = RESULT_OK;
    if (!session.IsConnect()) {
      m_tools.m_observer.OnReconnecting();
      result = session.Reopen();
    }
    if (result == RESULT_OK) result = ReadOnce(name, most, digest);
    if (result == RESULT_OK || result == ERROR_CODE_SERVER_OPENFILE) return result;
    session.Abort();
    if (m_tools.m_cancel.IsCancelled()) return RESULT_OK;
    if (session.IsOtherStorage()) return result;
    const int pause = retry.Next(digest.Counted() > before);
    if (pause < 0) return result;
    m_tools.m_observer.OnRetrying(0, pause, DescribeResult(result));
    m_tools.m_cancel.Sleep(pause);
  }
}

int CVerification::ReadOnce(const std::string& name, std::int64_t most, CFileDigest& digest) {
  std::int64_t at = digest.Counted(), shown = at;
  const std::int64_t before = m_progress.m_llDone - m_progress.m_llFileDone;
  const auto take = [&](const char* data, std::size_t size) {
    digest.Add(at, data, size);
    at += static_cast<std::int64_t>(size);
    m_result.m_llRead += static_cast<std::int64_t>(size);
    m_progress.m_llFileDone = std::min(at, m_progress.m_llFileSize);
    m_progress.m_llDone = before + m_progress.m_llFileDone;
    if (at - shown >= kShowBytes) Show();
    if (at - shown >= kShowBytes) shown = at;
    return !m_tools.m_cancel.IsCancelled();
  };
  return m_tools.m_session.ReadFile(name, take, at, most - at);
}
