// Upload reception: stores what one client sends in one target file.
//
// Prepare opens the file and holds it against every other receiver, every chunk is written straight
// from the received packet at the position it carries, the end message closes it. Runs on the
// link's delivery thread; shares m_bStopService, m_nTransType and m_bWriting
// with StopService.

#include <algorithm>
#include <utility>

#include "net/TransNet.h"
#include "platform/ExpertUtils.h"
#include "platform/HardWareCommon.h"
#include "platform/KQFile.h"
#include "platform/System.h"
#include "platform/TimeConvert.h"
#include "protocol/MessageCodes.h"
#include "protocol/Messages.h"
#include "protocol/ResultCodes.h"
#include "protocol/TransferTypes.h"
#include "session/HeldFile.h"
#include "session/SessionState.h"
#include "session/TransClient.h"

namespace {

constexpr std::int64_t kWriteErrorLogSeconds = 3;

// A receiver whose link has just gone lets go in a moment.
constexpr int kHolderLooks = 10;
constexpr int kHolderPauseMs = 50;

}  // namespace

void CTransClient::AnswerPrepareReceive(int nLength, const char* data) {
  KQLonglong llFileLen = 0;
  int result = CREATE_FILE_ERROR;
  const auto start = DecodeBody<SUploadStart>(data, nLength);
  const bool refused =
      start && !Allows(&ITransNet::MayUpload, Facts(start->m_strPath), ERefusal::kUpload);
  if (refused) {
    llFileLen = RefuseUpload(std::string(start->m_strPath));
  } else {
    result = PrepareReceiveData(static_cast<unsigned>(nLength), data, &llFileLen);
  }
  SendMsg(NET_CTS_PREPARETRAN_FILE, EncodeBody(SUploadStartAnswer{result, llFileLen}));
  WriteLog("DealNetMsg NET_CTS_PREPARETRAN_FILE \n");
  if (start && !refused && result != RESULT_OK) {
    TellFailed(&ITransNet::OnUploaded, start->m_strPath, result);
  }
}

// No write of this client is under way: who stops its session need not wait,
// though it cannot say so by a file of its own. Returns the file's length.
KQLonglong CTransClient::RefuseUpload(const std::string& path) {
  WriteLog("CTransClient::PrepareReceiveData refused by the server CREATE_FILE_ERROR \n");
  m_bWriting = false;
  return static_cast<KQLonglong>(CHardWareCommon::GetFileSize(path));
}

int CTransClient::PrepareReceiveData(unsigned int nLength, const char* data,
                                     KQLonglong* llFileLen) {
  if (m_bStopService) {
    WriteLog("CTransClient::PrepareReceiveData ERROR_CODE_STOP_SERVICE \n");
    return ERROR_CODE_STOP_SERVICE;
  }
  if (m_nTransType == PROCESS_TYPE_CLIENT_DOWNDATA) {
    WriteLog("CTransClient::PrepareReceiveData ERROR_CODE_SERVER_DOWNDATA\n");
    return ERROR_CODE_SERVER_DOWNDATA;
  }
  const auto start = DecodeBody<SUploadStart>(data, static_cast<int>(nLength));
  if (!start) return CREATE_FILE_ERROR;
  const bool create = start->m_bCreate;
  const std::string path(start->m_strPath);
  const bool durable = m_pTransNet != nullptr && m_pTransNet->IsDurable();
  SFileStatus status;
  System().QueryFile(path, status);
  int newEntries = 0;
  const SHeldFile target = OpenTarget(path, durable ? &newEntries : nullptr);
  const std::shared_ptr<CFileHandle>& file = target.m_pFile;
  bool isEmpty = false;
  if (file != nullptr) {
    if (durable && !create) CDurableUpload::Recover(*file, path, target.m_bLocked);
    // Another receiver may have had it until now.
    isEmpty = System().QueryFile(path, status) == ESystemError::kNone && status.m_llSize == 0;
  }
  *llFileLen = status.m_llSize;
  // The low 32 bits only, kept on purpose; the answer carries all of them.
  WriteLog("CTransClient::PrepareReceiveData llFileLen = " +
           std::to_string(static_cast<std::int32_t>(*llFileLen)) + " \n");
  m_nLastDataError = RESULT_OK;
  m_pState->m_llLostPos = INT64_MAX;
  if (file == nullptr || (create && !isEmpty && !file->Resize(0))) return RefuseTarget(target);
  m_pTransFile->Attach(file, path);
  if (durable) {
    if (*llFileLen == 0) newEntries = std::max(newEntries, 1);
    m_pState->m_durable.Begin(*file, path, ProjectDir(), newEntries, create ? -1 : *llFileLen);
    if (m_pState->m_durable.IsShortened()) m_pState->m_llLostPos = *llFileLen;
  }
  m_nTransType = PROCESS_TYPE_CLIENT_UPDATA;
  BeginUpload(path);
  return RESULT_OK;
}

// Opens or makes the file, and empties nothing: one that another session is
// about to write must keep what it holds. Most lie where others do already.
SHeldFile CTransClient::OpenTarget(const std::string& path, int* newEntries) {
  m_pTransFile->Attach(nullptr, path);  // which may be the same file
  SHeldFile target = HoldFile(path);
  if (target.m_eError == ESystemError::kNotFound) {
    if (newEntries != nullptr) *newEntries = CDurableUpload::CountNewEntries(path);
    EU::CExpertUtils::CreateAllDir(path);
    target = HoldFile(path);
  }
  // Perhaps by this session, which has yet to confirm it, under another name.
  if (target.m_eError == ESystemError::kBusy && !m_pState->m_group.IsEmpty()) {
    ConfirmGroup();
    target = HoldFile(path);
  }
  for (int look = 0; target.m_eError == ESystemError::kBusy && look < kHolderLooks; ++look) {
    System().Sleep(kHolderPauseMs);
    target = HoldFile(path);
  }
  return target;
}

int CTransClient::RefuseTarget(const SHeldFile& target) {
  if (target.m_eError == ESystemError::kBusy) {
    WriteLog("CTransClient::PrepareReceiveData another receiver has the file " +
             target.m_strHolder + " \n");
  }
  WriteLog("CTransClient::PrepareReceiveData open file fales CREATE_FILE_ERROR \n");
  return CREATE_FILE_ERROR;
}

void CTransClient::StoreFileData(int nLength, const char* data) {
  const int result = ReceiveData(static_cast<unsigned>(nLength), data);
  if (result == RESULT_OK) return;
  m_pState->m_ahead.Forget();
  AnnounceFailure(result);
}

// A failure that repeats is announced once.
void CTransClient::AnnounceFailure(int result) {
  if (result == m_nLastDataError) return;
  m_nLastDataError = result;
  SendMsg(NET_STC_WRITEDATA_ERROR, EncodeBody(SResult{result}));
}

int CTransClient::CheckReceiving() {
  if (m_bStopService) {
    WriteLog("CTransClient::ReceiveData m_bStopService = true \n");
    return ERROR_CODE_STOP_SERVICE;
  }
  const std::int32_t transType = m_nTransType;
  if (transType != PROCESS_TYPE_CLIENT_UPDATA) {
    WriteLog("CTransClient::ReceiveData m_nTransType = " + std::to_string(transType) + " \n");
    return ERROR_CODE_NOT_UPDATA;
  }
  return RESULT_OK;
}

bool CTransClient::StoreChunk(KQLonglong position, const char* data, int nLength) {
  m_pState->m_ahead.Look(position, data, nLength);
  if ((position < 0 || MayStoreNext()) && WriteDurably(position, data, nLength)) {
    m_pState->m_llLostPos = std::max(m_pState->m_llLostPos, position + nLength);
    return true;
  }
  if (position >= 0) m_pState->m_llLostPos = std::min(m_pState->m_llLostPos, position);
  return false;
}

// What could not be brought to the disk is lost as well, wherever it began.
bool CTransClient::WriteDurably(KQLonglong position, const char* data, int nLength) {
  const std::shared_ptr<CFileHandle> file = m_pTransFile->GetHandle();
  if (file == nullptr) return false;
  if (position >= 0) m_pState->m_durable.BeforeWrite(*file);
  if (!m_pState->m_ahead.Write(*file, position, data, nLength)) return false;
  if (m_pState->m_durable.Wrote(*file, position, nLength)) return true;
  m_pState->m_llLostPos = std::min(m_pState->m_llLostPos, m_pState->m_durable.SafeBytes());
  return false;
}

int CTransClient::ReceiveData(unsigned int nLength, const char* data) {
  int refusal = CheckReceiving();
  if (refusal != RESULT_OK) return refusal;
  const auto piece = DecodeBody<SFileData>(data, static_cast<int>(nLength));
  if (!piece) return ERROR_CODE_SERVER_WRITE;
  const auto bytes = static_cast<int>(piece->m_strData.size());
  // Nothing is stored behind what was lost until that has arrived: the next
  // upload goes on where the file ends and takes all before it for stored.
  if (piece->m_llPosition > m_pState->m_llLostPos) return FailWrite();

  // Marked, then looked at again: a stop that came after the first look has
  // not seen the mark and closes the file without waiting for this write.
  const bool marked = m_bWriting.Exchange(true);
  refusal = CheckReceiving();
  if (refusal != RESULT_OK) {
    m_bWriting = marked;
    return refusal;
  }
  if (StoreChunk(piece->m_llPosition, piece->m_strData.data(), bytes)) {
    // The mark stays, kept on purpose: only a write that was tried and failed
    // clears it, and StopService of a session that stored data waits its full time.
    m_pState->m_upload.m_facts.m_llBytes += bytes;
    return RESULT_OK;
  }
  m_bWriting = false;
  if (piece->m_llPosition != kLeavingPosition) return FailWrite();
  m_pState->m_upload.m_bLeaving = true;  // no failure
  return ERROR_CODE_SERVER_WRITE;
}

int CTransClient::FailWrite() {
  LogWriteFailure(m_pTransFile->GetFilePath());
  m_pState->m_upload.m_facts.m_nResult = ERROR_CODE_SERVER_WRITE;
  return ERROR_CODE_SERVER_WRITE;
}

void CTransClient::LogWriteFailure(const std::string& path) {
  const std::int64_t now = CTimeConvert::GetCurTime();
  const std::int64_t since = now - m_llWriteErrTime;
  if (since <= kWriteErrorLogSeconds && since >= -kWriteErrorLogSeconds) return;
  m_llWriteErrTime = now;
  WriteLog("write data failed " + path + "\n");
}

// Ends an upload; its flush, where the server wants one, comes before the
// answer, and its failure as that of a write. During a download it closes the file under the sender
// and leaves the state to it, kept on purpose.
void CTransClient::AnswerEndOfFile() {
  if (!m_bStopService) {
    if (m_nTransType == PROCESS_TYPE_CLIENT_UPDATA) {
      if (m_pState->m_durable.HasBegun() && m_pTransFile->IsOpen()) {
        HandOverReceived();
        return;
      }
      FlushReceived();
    }
    m_nTransType.Claim(PROCESS_TYPE_CLIENT_UPDATA, PROCESS_TYPE_NONE);
    m_pTransFile->Close();
  }
  SendMsg(NET_CTS_TRANSFILEDATA_END, "");
  WriteLog("DealNetMsg NET_CTS_TRANSFILEDATA_END \n");
  if (!m_bStopService) EndUpload(RESULT_OK);
}

// What the next packets bring may lie on the disk with it.
void CTransClient::HandOverReceived() {
  m_nTransType.Claim(PROCESS_TYPE_CLIENT_UPDATA, PROCESS_TYPE_NONE);
  m_pState->m_group.Add({std::exchange(m_pState->m_durable, CDurableUpload()),
                         m_pTransFile->Detach(), m_pTransFile->GetFilePath(), m_nLastDataError,
                         std::exchange(m_pState->m_upload, SUploadReport())},
                        NET_CTS_TRANSFILEDATA_END, "");
  WriteLog("DealNetMsg NET_CTS_TRANSFILEDATA_END \n");
}

// Only files that are new, and their data, may come before the end of others
// is confirmed: nobody asks for these by that.
bool CTransClient::JoinsGroup(int msgType, int nLength, const char* data) const {
  if (m_pState->m_group.IsEmpty()) return true;
  if (msgType == NET_CTS_TRANSFILEDATA || msgType == NET_CTS_TRANSFILEDATA_END) return true;
  const auto start = DecodeBody<SUploadStart>(data, nLength);
  return msgType == NET_CTS_PREPARETRAN_FILE && start && start->m_bCreate &&
         !m_pState->m_group.Holds(std::string(start->m_strPath));
}

void CTransClient::ConfirmGroup() {
  if (m_pState->m_group.IsEmpty()) return;
  CDurableUpload failed = m_pState->m_group.Flush(
      [this](int code, const std::string& body) {
        SendMsg(code, body.data(), static_cast<int>(body.size()));
      },
      [this](const CConfirmGroup::SFile& file, bool safe) {
        if (!safe) LogWriteFailure(file.m_strPath);
        TellGrouped(file.m_report, safe ? RESULT_OK : int{ERROR_CODE_SERVER_WRITE});
      });
  if (!failed.HasBegun() || m_pState->m_durable.HasBegun()) return;
  m_nLastDataError = ERROR_CODE_SERVER_WRITE;
  m_pState->m_durable = std::move(failed);
}

void CTransClient::FlushReceived() {
  const std::shared_ptr<CFileHandle> file = m_pTransFile->GetHandle();
  CDurableUpload::SFlushed flushed;
  CDurableUpload& durable = m_pState->m_durable;
  if (file != nullptr ? durable.End(*file, flushed) : durable.EndPending()) return;
  AnnounceFailure(FailWrite());
}
