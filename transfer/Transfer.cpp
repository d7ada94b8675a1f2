// Transfer: rounds of requests until every file is whole or given up.

#include "transfer/Transfer.h"

#include <algorithm>
#include <utility>

#include "protocol/ResultCodes.h"
#include "transfer/CancelToken.h"
#include "transfer/Retry.h"
#include "transfer/Session.h"
#include "transfer/Sizes.h"

namespace {

// A file gets its name, and counts as done, when its request has ended.
// Small ones are sent again quickly: more of them, for less pauses between two.
constexpr std::size_t kFilesPerRequest = 500;
constexpr std::size_t kSmallFilesPerRequest = 2000;
constexpr std::int64_t kSmallBytes = std::int64_t{64} << 20;  // of all of them
constexpr std::int64_t kBytesPerRequest = std::int64_t{4} << 30;

const char* const kCancelled = "interrupted";

// As much counts as progress.
constexpr std::int64_t kProgressBytes = std::int64_t{1} << 20;

bool IsAnyOf(int code, std::initializer_list<int> codes) {
  return std::find(codes.begin(), codes.end(), code) != codes.end();
}

bool IsFinal(int code) {
  return IsAnyOf(
      code, {ERROR_CODE_SERVER_OPENFILE, CREATE_FILE_ERROR, ERROR_CODE_CLIENT_OPENFILE,
             ERROR_CODE_CLIENT_CREATEFILE, ERROR_CODE_LOSTINFO_RECORD, ERROR_CODE_LOSTINFO_ACCESS,
             ERROR_CODE_LOSTINFO_CONTENT, ERROR_CODE_CLIENT_DISKSPACE, kRequestUnknown});
}

// After these the server has said all that it is going to say.
bool LeavesLinkClean(int code) {
  return IsFinal(code) ||
         IsAnyOf(code, {ERROR_CODE_SERVER_WRITE, ERROR_CODE_CLIENT_SEEK, ERROR_CODE_CLIENT_READ});
}

// What a transfer says of files whose turn it did not come to, or that it was
// at, when it had to end.
bool IsUnreached(int code) {
  return IsAnyOf(code, {ERROR_CODE_SEND_STOPPED, ERROR_CODE_CLIENT_SENDDATA});
}

void Blame(STransferItem& item, int code) {
  item.m_nCode = code;
  item.m_strWhy = DescribeResult(code);
  item.m_bFinal = IsFinal(code);
}

std::int64_t SizeOf(const std::vector<STransferItem*>& batch) {
  std::int64_t bytes = 0;
  for (const STransferItem* item : batch) bytes = AddSizes(bytes, item->m_llSize);
  return bytes;
}

}  // namespace

DigestReader ReadsUnlessCancelled(const CCancelToken& cancel, const std::string& path) {
  return [&cancel, reader = ReadsFile(path)](std::int64_t at, char* data, std::size_t size) {
    return cancel.IsCancelled() ? std::int64_t{-1} : reader(at, data, size);
  };
}

CTransfer::CTransfer(const STransferTools& tools)
    : m_session(tools.m_session),
      m_cancel(tools.m_cancel),
      m_observer(tools.m_observer),
      m_nRetries(tools.m_nRetries),
      m_nRetrySeconds(tools.m_nRetrySeconds),
      m_mayGoOn(tools.m_mayGoOn) {}

void CTransfer::Run(std::vector<STransferItem>& items) {
  for (const STransferItem& item : items) {
    m_behind.m_llTotal = AddSizes(m_behind.m_llTotal, item.m_llSize);
    ++m_behind.m_nFilesTotal;
    if (!item.m_bDone) continue;
    m_behind.m_llDone = AddSizes(m_behind.m_llDone, item.m_llSize);
    ++m_behind.m_nFilesDone;
  }
  m_observer.OnPlanned(m_behind.m_nFilesTotal - m_behind.m_nFilesDone,
                       m_behind.m_llTotal - m_behind.m_llDone);
  const auto left = [&items] {
    return std::count_if(items.begin(), items.end(),
                         [](const STransferItem& item) { return !item.m_bDone && !item.m_bFinal; });
  };
  CRetry retry(m_nRetries, m_nRetrySeconds);
  while (left() > 0 && !IsOver()) {
    const std::size_t before = m_behind.m_nFilesDone;
    m_llRoundMoved = 0;
    if (EnsureLink()) Round(items);
    if (!m_vecEnded.empty() && !IsOver() && EnsureLink()) VerifyEnded();
    m_vecEnded.clear();
    const bool gained = LookWhatIsKept() || m_behind.m_nFilesDone > before;
    if (left() == 0 || IsOver()) break;
    const int pause = retry.Next(gained);
    if (pause < 0) break;
    m_observer.OnRetrying(static_cast<std::size_t>(left()), pause, WhyAgain(items));
    m_cancel.Sleep(pause);
  }
  for (STransferItem& item : items) TellEnd(item);
}

bool CTransfer::IsOver() const {
  return m_bStopped || m_cancel.IsCancelled() || m_session.IsOtherStorage();
}

int CTransfer::AskKept(const STransferItem&, std::int64_t& bytes) {
  bytes = -1;
  return RESULT_OK;
}

// What was sent need not be kept: a full disk takes it and lets it go. While
// nobody can be asked, what was sent counts.
bool CTransfer::LookWhatIsKept() {
  bool gained = false;
  while (!m_begun.empty() && !IsOver()) {
    STransferItem& item = *m_begun.back();
    std::int64_t bytes = 0;
    const int result = EnsureLink() ? AskKept(item, bytes) : ERROR_CODE_CLIENT_CONNECT;
    if (result != RESULT_OK && !LeavesLinkClean(result)) {
      m_bRenewLink = true;
      return gained || m_llRoundMoved >= kProgressBytes;
    }
    m_begun.pop_back();
    if (HasGained(item, result == RESULT_OK ? bytes : -1)) gained = true;
  }
  return gained;
}

bool CTransfer::HasGained(STransferItem& item, std::int64_t bytes) {
  const auto [kept, isFirst] = m_kept.try_emplace(&item, bytes);
  const std::int64_t more = bytes - std::exchange(kept->second, bytes);
  if (bytes < 0 || isFirst) {
    if (item.m_nCode == ERROR_CODE_SERVER_WRITE) m_full.insert(&item);
    return m_llRoundMoved >= kProgressBytes;
  }
  const bool gained = more >= kProgressBytes;
  if (item.m_nCode != ERROR_CODE_SERVER_WRITE || gained) {
    m_full.erase(&item);
  } else if (!m_full.insert(&item).second) {
    item.m_bFinal = true;  // twice at one length: there is no room for more
  }
  return gained && IsResumable(item);
}

std::string CTransfer::WhyAgain(const std::vector<STransferItem>& items) const {
  if (m_bRenewLink && !m_strNoLink.empty()) return m_strNoLink;
  const auto first = std::find_if(items.begin(), items.end(), [](const STransferItem& item) {
    return !item.m_bDone && !item.m_bFinal && !item.m_strWhy.empty();
  });
  return first == items.end() ? m_strNoLink : first->m_strShown + ": " + first->m_strWhy;
}

bool CTransfer::EnsureLink() {
  if (!m_bRenewLink && m_session.IsConnect()) return true;
  m_observer.OnReconnecting();
  const int result = m_session.Reopen();
  m_bRenewLink = result != RESULT_OK;
  m_strNoLink = m_bRenewLink ? m_session.Describe(result) : "";
  if (m_bRenewLink) m_observer.OnNotConnected(result, m_strNoLink);
  return !m_bRenewLink;
}

void CTransfer::Round(std::vector<STransferItem>& items) {
  for (const bool last : {false, true}) MoveAll(Queue(items, last));
}

CTransfer::Batch CTransfer::Queue(std::vector<STransferItem>& items, bool last) {
  Batch queue;
  for (STransferItem& item : items) {
    if (item.m_bDone || item.m_bFinal || GoesLast(item) != last || Waits(item)) continue;
    if (const std::string why = Prepare(item); !why.empty()) {
      item.m_strWhy = why;
      item.m_bFinal = true;
      continue;
    }
    queue.push_back(&item);
  }
  return queue;
}

void CTransfer::MoveAll(const Batch& queue) {
  for (std::size_t next = 0; next < queue.size() && !m_bRenewLink && !IsOver();) {
    m_bStopped = m_mayGoOn && !m_mayGoOn();
    if (m_bStopped) return;
    Batch batch;
    std::int64_t bytes = 0;
    for (std::size_t i = next; i < queue.size() && batch.size() < kSmallFilesPerRequest; ++i) {
      bytes = AddSizes(bytes, queue[i]->m_llSize);
      if (!batch.empty() && bytes > kBytesPerRequest) break;
      if (batch.size() >= kFilesPerRequest && bytes > kSmallBytes) break;
      batch.push_back(queue[i]);
    }
    Between();
    Ready(batch);
    next += std::max<std::size_t>(batch.size(), 1);
    if (!batch.empty()) MoveBatch(batch);
  }
}

void CTransfer::EndAlone(STransferItem& item) {
  m_vecEnded = {&item};
  VerifyEnded();
}

// Files of it that were not reached have their turn in the next round.
void CTransfer::MoveBatch(const Batch& batch) {
  const int started = Start(batch);
  if (started != RESULT_OK) {
    for (STransferItem* item : batch) {
      Blame(*item, started);
      item->m_strWhy = WhyNotStarted(batch, started);
    }
    m_bRenewLink = !LeavesLinkClean(started);
    return;
  }
  Watch(batch);
  const bool cut = !m_session.IsConnect() || m_cancel.IsCancelled();
  const std::vector<int> statuses = m_session.GetStatuses();
  bool ended = cut;  // before it came to all of them
  STransferItem* first = nullptr;
  for (std::size_t i = 0; i < batch.size(); ++i) {
    const int status = i < statuses.size() ? statuses[i] : int{ERROR_CODE_CLIENT_SENDDATA};
    if (status == RESULT_OK) {
      m_vecEnded.push_back(batch[i]);
    } else if (ended && IsUnreached(status)) {
      if (first == nullptr) first = batch[i];
    } else {
      Fail(*batch[i], status);
      ended = ended || m_bRenewLink;
      m_begun.push_back(batch[i]);
    }
  }
  if (cut && first != nullptr) {
    Blame(*first, ERROR_CODE_CLIENT_SENDDATA);
    m_begun.push_back(first);
  }
  if (first != nullptr && m_cancel.IsCancelled()) {
    first->m_nCode = 0;
    first->m_strWhy = kCancelled;
  }
  if (!m_session.IsConnect()) m_bRenewLink = true;
  if (!m_bRenewLink) VerifyEnded();
}

void CTransfer::Fail(STransferItem& item, int code) {
  // The server's own reason for not telling what is missing says more.
  if (code == ERROR_CODE_GETLOSTINFO && IsFinal(m_session.LastAnswer())) {
    code = m_session.LastAnswer();
  }
  Blame(item, code);
  if (code == CREATE_FILE_ERROR && m_session.HasMovedOn()) item.m_bFinal = false;
  if (!LeavesLinkClean(code)) m_bRenewLink = true;
}

std::string CTransfer::WhyNotStarted(const Batch&, int code) {
  return DescribeResult(code);
}

// Waits for the end.
void CTransfer::Watch(const Batch& batch) {
  const std::int64_t movedBefore = m_session.BytesMoved();
  const int limitMs = m_session.TimeoutMs(0);
  bool stopping = false;
  m_silence.Reset();
  for (bool moving = true; moving;) {
    moving = m_session.IsMoving();
    ShowProgress(batch);
    if (moving) LookAhead(batch);
    if (moving && !stopping && m_cancel.IsCancelled()) {
      stopping = true;
      m_session.StopMoving();
    }
    if (moving && limitMs > 0 && m_shown.m_llSilentMs >= limitMs) {
      m_observer.OnNotConnected(ERROR_CODE_CLIENT_CONNECT, m_session.SilenceText());
      m_session.Abort();
    }
    if (moving) m_session.WaitWhileMoving();
  }
  const std::size_t reached = m_session.GetTransferState().m_nRecord;
  if (IsResumable(*batch[reached])) m_llRoundMoved += m_session.BytesMoved() - movedBefore;
}

// What was told stays told: a file that is begun again, or fell short, does
// not take anything back.
void CTransfer::ShowProgress(const Batch& batch) {
  const STransferState state = m_session.GetTransferState();
  const std::int64_t inBatch = std::clamp<std::int64_t>(state.m_llDone, 0, SizeOf(batch));
  m_shown.m_llTotal = m_behind.m_llTotal;
  m_shown.m_nFilesTotal = m_behind.m_nFilesTotal;
  m_shown.m_llDone = std::max(m_shown.m_llDone, AddSizes(m_behind.m_llDone, inBatch));
  m_shown.m_nFilesDone = std::max(m_shown.m_nFilesDone, m_behind.m_nFilesDone + state.m_nRecord);
  m_shown.m_llMoved = m_session.BytesMoved();
  m_shown.m_strFile = batch[state.m_nRecord]->m_strShown;
  m_shown.m_llFileDone = state.m_llFileDone;
  m_shown.m_llFileSize = batch[state.m_nRecord]->m_llSize;
  m_shown.m_dBytesPerSecond = m_rate.Count(m_shown.m_llMoved);
  m_shown.m_llSilentMs = m_silence.Count(m_session.Heard());
  m_observer.OnProgress(m_shown);
}

// Once for each file.
void CTransfer::TellEnd(STransferItem& item) {
  if (m_told.insert(&item).second) m_observer.OnFileEnd(item);
}

void CTransfer::VerifyEnded() {
  if (m_vecEnded.empty()) return;
  const int result = Verify(m_vecEnded);
  if (result != RESULT_OK && !LeavesLinkClean(result)) m_bRenewLink = true;
  for (STransferItem* item : m_vecEnded) {
    if (result != RESULT_OK && !item->m_bDone) Blame(*item, result);
    if (!item->m_bDone) continue;
    item->m_nCode = RESULT_OK;
    item->m_strWhy.clear();
    m_behind.m_llDone = AddSizes(m_behind.m_llDone, item->m_llSize);
    ++m_behind.m_nFilesDone;
    TellEnd(*item);
  }
  m_vecEnded.clear();
}
