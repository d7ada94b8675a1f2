// Session: files of the server that have none beside them here, and digests
// of what an upload reads.

#include <algorithm>

#include "net/LinkInfo.h"
#include "platform/ByteOrder.h"
#include "platform/KQEvent.h"
#include "platform/System.h"
#include "protocol/DataPacket.h"
#include "protocol/MessageCodes.h"
#include "protocol/Messages.h"
#include "protocol/ResultCodes.h"
#include "transfer/Session.h"
#include "transfer/SessionWaits.h"
#include "transfer/Sizes.h"

namespace {

constexpr int kDataStepMs = 1000;
constexpr int kSilentSteps = 30;

}  // namespace

int CSession::AskLostInfo(const std::string& name, SLostInfo& info) {
  int result = AskLostInfoOnce(name, info);
  const auto isBusy = [&] {
    return result == ERROR_CODE_GETLOSTINFO && m_nErrorCode == ERROR_CODE_TRANS_BUSY;
  };
  for (int i = 0; m_bJustRead && i < kReadyTries && isBusy(); ++i) {
    System().Sleep(kReadyPauseMs);
    result = AskLostInfoOnce(name, info);
  }
  m_bJustRead = m_bJustRead && isBusy();
  return result;
}

// An answer that does not come leaves m_nErrorCode as it was.
int CSession::AskLostInfoOnce(const std::string& name, SLostInfo& info) {
  {
    const std::lock_guard guard(m_mutex);
    m_answers.clear();
    m_strLostText.clear();
  }
  m_nErrorCode = RESULT_OK;
  const int result = Request(NET_CTS_GETLOSTINFO, [&] {
    return GetServerLostInfo(name, info.m_vecLost, info.m_vecBounds);
  });
  const std::lock_guard guard(m_mutex);
  info.m_strText = m_strLostText;
  return result;
}

int CSession::EndFile() {
  m_evFileEnd->ResetKQEvent();
  if (!SendMessage(NET_CTS_TRANSFILEDATA_END, nullptr, 0)) return ERROR_CODE_CLIENT_CONNECT;
  if (m_evFileEnd->Wait(kFileEndWaitMs) == kWaitTimeout) return ERROR_CODE_WAIT_TRANSEND;
  return Checked(RESULT_OK);
}

int CSession::ReadFile(const std::string& name, DataSink sink, std::int64_t position,
                       std::int64_t most) {
  if (position < 0 || most <= 0) return RESULT_OK;
  {
    const std::lock_guard guard(m_mutex);
    m_sink = std::move(sink);
    m_llSunk = position;
    m_llSinkEnd = AddSizes(position, most);
    m_bSinkBroken = false;
    m_bSinkEnded = false;
  }
  m_nErrorCode = RESULT_OK;
  m_nServerErrorCode = RESULT_OK;
  m_evReply->ResetKQEvent();
  m_evFileEnd->ResetKQEvent();
  m_bJustRead = true;
  const std::string body = EncodeBody(SDownloadStart{position, name});
  int result = ERROR_CODE_CLIENT_CONNECT;
  if (SendMessage(NET_CTS_PREPARETRANS_FILE, body.data(), static_cast<int>(body.size()))) {
    SendAhead();
    const bool silent = !AwaitReply(kAnswerWaitMs);
    result = Checked(silent ? ERROR_CODE_WAIT_SERVERRESPOND_DOWN : m_nErrorCode.Load());
    if (result == RESULT_OK) result = WaitForData();
    if (!silent && result != ERROR_CODE_DOWN_STALLED)
      m_evFileEnd->SetKQEvent();  // none outstanding
  }
  const std::lock_guard guard(m_mutex);
  m_sink = nullptr;
  return result;
}

// Once all is there that was wanted, the server is stopped; the end of the
// file comes in any case.
int CSession::WaitForData() {
  const int silentSteps = TimeoutMs(kSilentSteps * kDataStepMs) / kDataStepMs;
  std::int64_t before = -1;
  bool stopped = false;
  for (int silent = 0;; ++silent) {
    m_evFileEnd->Wait(kDataStepMs);
    m_evFileEnd->ResetKQEvent();
    const bool connected = IsConnect();
    std::unique_lock lock(m_mutex);
    if (m_bSinkBroken || m_bSinkEnded) break;
    if (!connected || silent >= silentSteps) return ERROR_CODE_DOWN_STALLED;
    const std::int64_t heard = Heard();
    if (heard != before) silent = 0;
    before = heard;
    if (stopped || m_llSunk < m_llSinkEnd) continue;
    stopped = true;
    lock.unlock();
    if (!SendMessage(NET_CTS_TRANS_STOP, nullptr, 0)) return ERROR_CODE_CLIENT_CONNECT;
  }
  bool broken = false, enough = false;
  {
    const std::lock_guard guard(m_mutex);
    broken = m_bSinkBroken;
    enough = m_llSunk == m_llSinkEnd;
  }
  if (broken) Abort();  // the rest of the file may be on its way
  if (broken) return ERROR_CODE_DOWN_STALLED;
  return Checked(enough ? static_cast<int>(RESULT_OK) : m_nServerErrorCode.Load());
}

void CSession::TakeData(int length, const char* body) {
  const int bytes = std::max(length - kPositionBytes, 0);
  const std::size_t record = GetTransferState().m_nRecord;
  std::unique_lock lock(m_mutex);
  if (!m_sink) {
    m_llMoved += bytes;
    if (bytes > 0 && record < m_vecArrived.size()) {
      m_vecArrived[record].Add(ReadInt64(body), body + kPositionBytes,
                               static_cast<std::size_t>(bytes));
    }
    return;
  }
  if (m_bSinkBroken || m_llSunk == m_llSinkEnd) return;
  const std::int64_t wanted = std::min<std::int64_t>(bytes, m_llSinkEnd - m_llSunk);
  m_bSinkBroken = length < kPositionBytes || ReadInt64(body) != m_llSunk ||
                  !m_sink(body + kPositionBytes, static_cast<std::size_t>(wanted));
  m_llSunk += wanted;
  const bool over = m_bSinkBroken || m_llSunk == m_llSinkEnd;
  lock.unlock();
  if (over) m_evFileEnd->SetKQEvent();
}

bool CSession::IsReading() {
  const std::lock_guard guard(m_mutex);
  return m_sink != nullptr;
}

// Set under the lock: a transfer that begins when the reading is over resets
// the event behind this.
void CSession::EndData() {
  const std::lock_guard guard(m_mutex);
  if (!m_sink) return;
  m_bSinkEnded = true;
  m_evFileEnd->SetKQEvent();
}

int CSession::SendBlocks(const std::string& name, std::int64_t held,
                         const std::vector<std::int64_t>& blocks, const DigestReader& reader) {
  int result = PrepareFile(name, false);
  if (result != RESULT_OK) return result;
  const bool isExpected = m_llServerFilePos == held;
  for (std::size_t i = 0; i < blocks.size() && isExpected && result == RESULT_OK; ++i) {
    const std::int64_t begin = blocks[i] * kDigestBlockBytes;
    result = SendPart(begin, std::min(begin + kDigestBlockBytes, held), reader);
  }
  result = EndParts(result);
  return result == RESULT_OK && !isExpected ? 0 : result;
}

// A file that failed is ended as well: it would stay open there.
int CSession::EndParts(int result) {
  const int ended = EndFile();
  if (result == RESULT_OK) result = ended;
  return result == RESULT_OK ? m_nServerErrorCode.Load() : result;
}

int CSession::PrepareFile(const std::string& name, bool whole) {
  int result = Checked(PrepareTransFile(name, whole));
  for (int i = 0; i < kReadyTries && result == ERROR_CODE_SERVER_DOWNDATA; ++i) {
    System().Sleep(kReadyPauseMs);
    result = Checked(PrepareTransFile(name, whole));
  }
  if (result == RESULT_OK) m_bJustRead = false;
  return result;
}

int CSession::SendPart(std::int64_t begin, std::int64_t end, const DigestReader& reader) {
  std::vector<char> piece(kMaxPieceBytes);
  for (std::int64_t at = begin; at < end;) {
    ILinkInfo* const link = m_pLinkInfo;
    if (link == nullptr || !link->IsLink()) return ERROR_CODE_CLIENT_CONNECT;
    if (!link->WaitSendRoom(kRoomWaitMs)) continue;
    const int bytes = NextPieceBytes(end - at);
    if (reader(at, piece.data(), static_cast<std::size_t>(bytes)) != bytes) {
      return ERROR_CODE_CLIENT_READ;
    }
    if (!SendData(at, piece.data(), bytes)) return ERROR_CODE_CLIENT_CONNECT;
    at += bytes;
    if (const int refused = m_nServerErrorCode; refused != RESULT_OK) return refused;
  }
  return RESULT_OK;
}

CFileDigest CSession::TakeDigest(std::size_t record) {
  const std::lock_guard guard(m_mutex);
  if (record < m_vecArrived.size()) return std::move(m_vecArrived[record]);
  return record < m_vecDigests.size() ? std::move(m_vecDigests[record]) : CFileDigest();
}

// What the server has already is read once, from the disk here.
void CSession::OnFileRead(std::size_t record, std::int64_t position, const char* data, int bytes) {
  m_llSigns += 1;
  if (record >= m_vecDigests.size()) return;
  CFileDigest& digest = m_vecDigests[record];
  if (position > digest.Counted()) {
    const DigestReader reader = ReadsFile(m_vecSent[record]);
    digest.ReadTo(position, [&](std::int64_t at, char* to, std::size_t size) -> std::int64_t {
      return m_bStop ? -1 : reader(at, to, size);
    });
  }
  digest.Add(position, data, static_cast<std::size_t>(bytes));
}
