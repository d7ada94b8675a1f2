// Receive handler: stores what the server answers and wakes who waits.
//
// Runs on the network layer's threads. Every handler stores the fields first,
// then writes the log, then sets the event: whoever wakes finds both. A lost
// link sets no event.

#include <algorithm>
#include <cstdint>

#include "client/ClientState.h"
#include "client/KQFileTransServiceClient.h"
#include "platform/KQEvent.h"
#include "platform/KQFile.h"
#include "platform/ThreadLock.h"
#include "protocol/MessageCodes.h"
#include "protocol/Messages.h"
#include "protocol/ResultCodes.h"
#include "protocol/TransferTypes.h"

bool CKQFileTransServiceClient::DealNetMsg(unsigned int, int, int nMsgType, int nLength,
                                           const char* pData, int) {
  Dispatch(nMsgType, pData == nullptr ? 0 : std::max(nLength, 0), pData);
  return true;
}

void CKQFileTransServiceClient::Dispatch(int code, int length, const char* body) {
  switch (code) {
    case NET_STC_TRANSFILEDATA:
      return OnFileData(length, body);
    case NET_COMMAND_DISCONNECT:
      return OnDisconnect();
    case NET_COMMAND_CONNECT:
      return OnConnect();
    case NET_CTS_PREPARETRAN_FILE:
      return OnPrepareAnswer(length, body);
    case NET_CTS_TRANSFILEDATA_END:
      return OnUploadEnd();
    case NET_CTS_TRANS_STOP:
      return OnTransStopped();
    case NET_CTS_REQUEST_SERVERFILESIZE:
      return OnTotalSize(length, body);
    case NET_CTS_PREPARETRANS_FILE:
      return OnDownloadAnswer(length, body);
    case NET_STC_TRANSFILEDATA_END:
      return OnDownloadEnd(length, body);
    case NET_STC_WRITEDATA_ERROR:
      return OnServerWriteError(length, body);
    case NET_CTS_GETLOSTINFO:
      return OnLostInfo(length, body);
    case NET_CTS_CHANGELOSTINFO:
      return OnLostInfoChanged();
    case NET_CTS_GETPRJDIR:
      return OnText(m_strServerPrjDir, length, body);
    case NET_CTS_GETPRJLIST:
    case NET_CTS_GETPRJFILELIST:
      return OnText(m_strPrjList, length, body);
    case NET_CTS_DELETEPRJ:
      return OnDeleted(length, body);
    default:
      return;
  }
}

void CKQFileTransServiceClient::OnDisconnect() {
  m_bPrjDirKnown = false;
  m_bConnect = false;
  m_bStop = true;
  m_pLinkInfo = nullptr;
  m_nTransState = PROCESS_TYPE_NONE;
  WriteLog("DealNetMsg NET_COMMAND_DISCONNECT \n");
}

void CKQFileTransServiceClient::OnConnect() {
  WriteLog("DealNetMsg NET_COMMAND_CONNECT \n");
}

void CKQFileTransServiceClient::OnPrepareAnswer(int length, const char* body) {
  const auto answer = DecodeBody<SUploadStartAnswer>(body, length);
  if (!answer) return;
  m_nErrorCode = answer->m_nResult;
  m_llServerFilePos = answer->m_llHeld;
  WriteLog("NET_CTS_PREPARETRAN_FILE Rec:" + std::to_string(answer->m_nResult) +
           "::" + std::to_string(answer->m_llHeld) + "\n");
  m_evReply->SetKQEvent();
}

void CKQFileTransServiceClient::OnUploadEnd() {
  WriteLog("DealNetMsg NET_CTS_TRANSFILEDATA_END \n");
  m_evFileEnd->SetKQEvent();
}

void CKQFileTransServiceClient::OnTransStopped() {
  WriteLog("DealNetMsg NET_CTS_TRANS_STOP \n");
  m_evTransEnd->SetKQEvent();
}

void CKQFileTransServiceClient::OnTotalSize(int length, const char* body) {
  const auto total = DecodeBody<STotalSize>(body, length);
  if (!total) return;
  m_TotalTransBytes = total->m_llBytes;
  WriteLog("DealNetMsg NET_CTS_REQUEST_SERVERFILESIZE m_TotalTransBytes = " +
           std::to_string(total->m_llBytes) + "\n");
  m_evReply->SetKQEvent();
}

void CKQFileTransServiceClient::OnDownloadAnswer(int length, const char* body) {
  const auto answer = DecodeBody<SResult>(body, length);
  if (!answer) return;
  m_nErrorCode = answer->m_nResult;
  WriteLog("DealNetMsg NET_CTS_PREPARETRANS_FILE m_nErrorCode :" +
           std::to_string(answer->m_nResult) + " \n");
  m_evReply->SetKQEvent();
}

// The one path that every downloaded byte takes. Whoever closes the file
// first raises m_bStopReceive, then waits for m_bWriting to fall; so the
// flags are read again after m_bWriting is up.
void CKQFileTransServiceClient::OnFileData(int length, const char* body) {
  const auto piece = DecodeBody<SFileData>(body, length);
  if (m_bStop || m_bStopReceive || !piece) return;
  if (piece->m_llPosition < 0) {
    // The text says the opposite of what happened; kept on purpose.
    m_pState->m_llLostPos = 0;  // nobody knows where it belongs
    ReportWriteFailure("DealNetMsg NET_STC_TRANSFILEDATA llFilePos >= 0 \n");
    return;
  }
  m_bWriting = true;
  if (m_bStop || m_bStopReceive) {
    m_bWriting = false;
    return;
  }
  const auto bytes = static_cast<int>(piece->m_strData.size());
  if (!StoreChunk(piece->m_llPosition, piece->m_strData.data(), bytes)) {
    ReportWriteFailure(
        "DealNetMsg NET_STC_TRANSFILEDATA m_nErrorCode = ERROR_CODE_CLIENT_WRITE \n");
  }
  m_bWriting = false;
  m_llTransBytes += bytes;
}

// Nothing is stored behind a chunk that was lost, until it comes again: the
// next download goes on where the file ends.
bool CKQFileTransServiceClient::StoreChunk(std::int64_t position, const char* data, int bytes) {
  const std::int64_t lost = m_pState->m_llLostPos;
  if (position <= lost && m_pFile->WriteEx(position, data, bytes)) {
    if (lost != INT64_MAX) m_pState->m_llLostPos = std::max(lost, position + bytes);
    return true;
  }
  m_pState->m_llLostPos = std::min(lost, position);
  return false;
}

void CKQFileTransServiceClient::ReportWriteFailure(const char* message) {
  m_pState->m_bWriteFailed = true;
  m_nErrorCode = ERROR_CODE_CLIENT_WRITE;
  WriteLog(message);
}

void CKQFileTransServiceClient::OnDownloadEnd(int length, const char* body) {
  const auto end = DecodeBody<SResult>(body, length);
  if (!end) return;
  if (end->m_nResult != RESULT_OK) m_nServerErrorCode = end->m_nResult;
  const std::int32_t shown = m_nServerErrorCode;
  WriteLog("DealNetMsg NET_STC_TRANSFILEDATA_END m_nServerErrorCode :" + std::to_string(shown) +
           " \n");
  m_evFileEnd->SetKQEvent();
}

void CKQFileTransServiceClient::OnServerWriteError(int length, const char* body) {
  const auto error = DecodeBody<SResult>(body, length);
  if (!error) return;
  m_nServerErrorCode = error->m_nResult;
  WriteLog("DealNetMsg NET_STC_WRITEDATA_ERROR m_nServerErrorCode :" +
           std::to_string(error->m_nResult) + " \n");
}

void CKQFileTransServiceClient::OnLostInfo(int length, const char* body) {
  const auto answer = DecodeBody<SLostRanges>(body, length);
  if (!answer) return;
  m_nErrorCode = answer->m_nResult;
  if (!answer->m_strText.empty()) {
    const CScopedLock lock(m_pLock);
    m_strLostInfo = answer->m_strText;
  }
  WriteLog("DealNetMsg NET_CTS_GETLOSTINFO m_nErrorCode :" + std::to_string(answer->m_nResult) +
           " \n");
  m_evReply->SetKQEvent();
}

// The result in the answer is not stored, on purpose: m_nErrorCode keeps that
// of the 2500 before, and that is what the requester reads.
void CKQFileTransServiceClient::OnLostInfoChanged() {
  WriteLog("DealNetMsg NET_CTS_CHANGELOSTINFO \n");
  m_evReply->SetKQEvent();
}

void CKQFileTransServiceClient::OnText(std::string& member, int length, const char* body) {
  {
    const CScopedLock lock(m_pLock);
    member.assign(length > 0 ? body : "", static_cast<std::size_t>(length));
  }
  m_evReply->SetKQEvent();
}

void CKQFileTransServiceClient::OnDeleted(int length, const char* body) {
  const auto answer = DecodeBody<SResult>(body, length);
  if (!answer) return;
  const auto refusal = DecodeBody<SDeleteAnswer>(body, length);
  m_pState->m_bDeleteRefused = refusal && refusal->m_bRefused;
  m_nDeleteResult = answer->m_nResult;
  m_evReply->SetKQEvent();
}
