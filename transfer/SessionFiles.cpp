// Session: files of the server that have none beside them here, and digests
// of what an upload reads.

#include <algorithm>

#include "net/LinkInfo.h"
#include "platform/ByteOrder.h"
#include "platform/KQEvent.h"
#include "platform/System.h"
#include "protocol/DataPacket.h"
#include "protocol/MessageCodes.h"
#include "protocol/ResultCodes.h"
#include "transfer/Names.h"
#include "transfer/Session.h"

namespace {

constexpr int kAnswerWaitMs = 10000;
constexpr int kDataStepMs = 1000;
constexpr int kSilentSteps = 30;
constexpr int kRoomWaitMs = 50;

// A server that has sent the end of a file is a moment later ready for the
// next one.
constexpr int kReadyTries = 2000;
constexpr int kReadyPauseMs = 1;

}  // namespace

int CSession::ReadFile(const std::string& name, DataSink sink) {
  {
    const std::lock_guard guard(m_mutex);
    m_sink = std::move(sink);
    m_llSunk = 0;
    m_bSinkBroken = false;
  }
  m_nErrorCode = RESULT_OK;
  m_nServerErrorCode = RESULT_OK;
  m_evReply->ResetKQEvent();
  m_evFileEnd->ResetKQEvent();
  const std::string body = std::string(kPositionBytes, '\0') + name;
  int result = ERROR_CODE_CLIENT_CONNECT;
  if (SendMessage(NET_CTS_PREPARETRANS_FILE, body.data(), static_cast<int>(body.size()))) {
    const bool silent = m_evReply->Wait(kAnswerWaitMs) == kWaitTimeout;
    result = Checked(silent ? ERROR_CODE_WAIT_SERVERRESPOND_DOWN : m_nErrorCode.Load());
  }
  if (result == RESULT_OK) result = WaitForData();
  const std::lock_guard guard(m_mutex);
  m_sink = nullptr;
  return result;
}

int CSession::WaitForData() {
  std::int64_t before = 0;
  for (int silent = 0; m_evFileEnd->Wait(kDataStepMs) == kWaitTimeout; ++silent) {
    if (!IsConnect() || silent >= kSilentSteps) return ERROR_CODE_DOWN_STALLED;
    const std::lock_guard guard(m_mutex);
    if (m_llSunk > before) silent = 0;
    before = m_llSunk;
  }
  bool broken = false;
  {
    const std::lock_guard guard(m_mutex);
    broken = m_bSinkBroken;
  }
  if (broken) Abort();  // the rest of the file may be on its way
  return broken ? static_cast<int>(ERROR_CODE_DOWN_STALLED) : Checked(m_nServerErrorCode);
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
  if (m_bSinkBroken) return;
  m_bSinkBroken = length < kPositionBytes || ReadInt64(body) != m_llSunk ||
                  !m_sink(body + kPositionBytes, static_cast<std::size_t>(bytes));
  m_llSunk += bytes;
  const bool broken = m_bSinkBroken;
  lock.unlock();
  if (broken) m_evFileEnd->SetKQEvent();
}

int CSession::WriteText(const std::string& name, const std::string& text) {
  int result = PrepareWhole(name);
  if (result == RESULT_OK) result = SendPieces(text);
  if (result == RESULT_OK) result = EndFile();
  if (result == RESULT_OK) result = m_nServerErrorCode;
  if (result != RESULT_OK) return result;
  std::vector<std::int64_t> held(1);
  result = IsAskable(name) ? AskSizes({name}, held) : AskHeldSize(name, held.front());
  if (result != RESULT_OK) return result;
  return held.front() == static_cast<std::int64_t>(text.size())
             ? RESULT_OK
             : static_cast<int>(ERROR_CODE_SERVER_WRITE);
}

int CSession::EmptyFile(const std::string& name) {
  const int result =
      Request(NET_CTS_PREPARETRAN_FILE, [&] { return PrepareTransFile(name, true); });
  return result == RESULT_OK ? EndFile() : result;
}

int CSession::WriteParts(const std::string& name,
                         const std::map<std::int64_t, std::string>& parts) {
  int result = PrepareSoon(name, false);
  for (const auto& [position, data] : parts) {
    if (result == RESULT_OK)
      result = SendPiece(position, data.data(), static_cast<int>(data.size()));
  }
  if (result == RESULT_OK) result = EndFile();
  return result == RESULT_OK ? m_nServerErrorCode.Load() : result;
}

int CSession::PrepareSoon(const std::string& name, bool whole) {
  int result = Checked(PrepareTransFile(name, whole));
  for (int i = 0; i < kReadyTries && result == ERROR_CODE_SERVER_DOWNDATA; ++i) {
    System().Sleep(kReadyPauseMs);
    result = Checked(PrepareTransFile(name, whole));
  }
  return result;
}

int CSession::SendPiece(std::int64_t position, const char* data, int bytes) {
  ILinkInfo* const link = m_pLinkInfo;
  do {
    if (link == nullptr || !link->IsLink()) return ERROR_CODE_CLIENT_CONNECT;
  } while (!link->WaitSendRoom(kRoomWaitMs));
  m_llOwn += bytes;
  return SendData(position, data, bytes) ? RESULT_OK : ERROR_CODE_CLIENT_CONNECT;
}

int CSession::SendPieces(const std::string& text) {
  for (std::size_t at = 0; at < text.size();) {
    const int bytes = NextPieceBytes(static_cast<std::int64_t>(text.size() - at));
    const int result = SendPiece(static_cast<std::int64_t>(at), text.data() + at, bytes);
    if (result != RESULT_OK) return result;
    at += static_cast<std::size_t>(bytes);
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
