// Download: fetches every file of a request, one after the other.
//
// The network thread writes the data into the open file (ReceiveHandler.cpp);
// the worker announces files, watches for the end, a stall or an error, and
// closes. m_bStopReceive and m_bWriting hand the file over between the two.

#include <cstdlib>
#include <memory>
#include <utility>

#include "client/ClientState.h"
#include "client/KQFileTransServiceClient.h"
#include "client/TransferRun.h"
#include "net/LinkInfo.h"
#include "net/NetWorkManageEx.h"
#include "platform/ExpertUtils.h"
#include "platform/HardWareCommon.h"
#include "platform/KQEvent.h"
#include "platform/KQFile.h"
#include "platform/KQPlatForm.h"
#include "platform/System.h"
#include "platform/TimeConvert.h"
#include "protocol/MessageCodes.h"
#include "protocol/Messages.h"
#include "protocol/ResultCodes.h"
#include "protocol/TransferTypes.h"

namespace {

constexpr int kSendSizeWaitMs = 5000;
constexpr int kWatchStepMs = 1000;
constexpr int kStopWaitMs = 10000;

// Handing over the file: a first pause, then steps while a write runs.
constexpr int kHandOverMs = 20;
constexpr int kHandOverStepMs = 50;
constexpr int kHandOverSteps = 101;

const std::string kReceiveLog = "CKQFileTransServiceClient ReceiveSingleFile ";

}  // namespace

int CKQFileTransServiceClient::DownFileFromDataService(const std::string& xml) {
  return StartDownload(Prepare(PROCESS_TYPE_CLIENT_DOWNDATA, xml));
}

int CKQFileTransServiceClient::DownloadRecords(std::vector<Channel_Key_Value> records) {
  return StartDownload(PrepareRecords(PROCESS_TYPE_CLIENT_DOWNDATA, std::move(records)));
}

int CKQFileTransServiceClient::StartDownload(int result) {
  if (result != RESULT_OK) {
    m_nTransState = PROCESS_TYPE_NONE;
    return result;
  }
  std::string names;
  for (const Channel_Key_Value& rec : CopyRecords()) AddName(names, rec.m_strName);
  SendText(NET_CTS_REQUEST_SERVERFILESIZE, names);
  if (!AwaitReply(kSendSizeWaitMs)) {
    m_nTransState = PROCESS_TYPE_NONE;
    return ERROR_CODE_WAIT_FILESIZE;
  }
  // The state stays "downloading" here, unlike above. Kept on purpose.
  if (!HasFreeSpace()) return ERROR_CODE_CLIENT_DISKSPACE;
  if (StartWorker(&ReceiveFile)) return RESULT_OK;
  FinishRun(m_pState->m_ullRun, false);
  return ERROR_CODE_CLIENT_SENDCMD;
}

// Compares with the whole size on the server, not with what is missing here.
bool CKQFileTransServiceClient::HasFreeSpace() const {
  std::uint64_t freeBytes = 0;
  const ESystemError error = System().QueryFreeSpace(GuardedCopy(m_strPrjDir), freeBytes);
  if (error != ESystemError::kNone) return false;
  const auto total = static_cast<std::uint64_t>(m_TotalTransBytes.Load());
  const auto done = static_cast<std::uint64_t>(m_llTransBytes.Load());
  return freeBytes >= total && freeBytes >= total - done;
}

void* CKQFileTransServiceClient::ReceiveFile(void* client) {
  static_cast<CKQFileTransServiceClient*>(client)->ReceiveFileFromServer();
  return nullptr;
}

// Does not set m_evTransEnd: the server does, by its answer to the 2503.
// Whatever happens, the run is finished: callers wait for that.
void CKQFileTransServiceClient::ReceiveFileFromServer() {
  CTransferRun run;
  std::size_t i = 0;
  try {
    if (!TakeRun(PROCESS_TYPE_CLIENT_DOWNDATA, run)) return;
    for (; i < run.m_vecKey.size() && !IsTransStopped(); ++i) {
      BeginRecord(run.m_ullNumber, i, run.m_vecKey[i].m_llSize);
      const bool received = ReceiveSingleFile(run.m_vecKey[i]);
      StoreStatus(run.m_ullNumber, i, run.m_vecKey[i].m_nStatus);
      if (!received) break;
    }
  } catch (...) {  // no memory, as a rule
    CloseFile();
    StoreStatus(run.m_ullNumber, i, ERROR_CODE_CLIENT_SENDCMD);
  }
  if (FinishUnlessStopped(run.m_ullNumber)) return;
  try {
    SendMessage(NET_CTS_TRANS_STOP, nullptr, 0);
  } catch (...) {
    // The server runs into the end of the link instead.
  }
  FinishRun(run.m_ullNumber, false);
}

bool CKQFileTransServiceClient::ReceiveSingleFile(Channel_Key_Value& rec) {
  const std::string directory = GuardedCopy(m_strPrjDir);
  const std::string local = directory + rec.m_strPath;
  if (!OpenTarget(local)) {
    rec.m_nStatus = ERROR_CODE_CLIENT_CREATEFILE;
    WriteLog("ERROR_CODE_CLIENT_CREATEFILE " + directory + " - " + rec.m_strPath + " \n");
    return false;
  }
  m_bStopReceive = false;
  m_evFileEnd->ResetKQEvent();
  const auto have = static_cast<std::int64_t>(CHardWareCommon::GetFileSize(local));
  if (!RequestFile(rec, have)) return false;
  m_llTransBytes += have;
  const bool received = WatchFile(rec);
  CloseFile();
  if (!received) {
    // The blank behind the line end is kept on purpose.
    WriteLog(kReceiveLog + "m_nErrorCode2 = " + std::to_string(m_nErrorCode) + " \n ");
  }
  return received;
}

// Opened without a look before: a copy that cannot be looked at, or not be
// opened now, must not pass for a missing one and be emptied.
bool CKQFileTransServiceClient::OpenTarget(const std::string& local) {
  std::unique_ptr<ISystemFile> file;
  if (System().OpenFile(local, EOpenMode::kUpdate, file) == ESystemError::kNotFound) {
    WriteLog(kReceiveLog + " CreateAllDir \n");
    EU::CExpertUtils::CreateAllDir(local);
    System().OpenFile(local, EOpenMode::kCreate, file);
  }
  return UseFile(file == nullptr ? nullptr : std::make_shared<CFileHandle>(std::move(file)), local);
}

// Data may arrive before the answer: everything it needs is set up by now.
bool CKQFileTransServiceClient::RequestFile(Channel_Key_Value& rec, std::int64_t have) {
  m_nServerErrorCode = RESULT_OK;
  m_nErrorCode = RESULT_OK;
  m_evReply->ResetKQEvent();
  if (!SendText(NET_CTS_PREPARETRANS_FILE, EncodeBody(SDownloadStart{have, rec.m_strName}))) {
    return RefuseFile(rec, ERROR_CODE_CLIENT_SENDFILECMD, " ERROR_CODE_CLIENT_SENDFILECMD \n");
  }
  if (!AwaitReply(kRequestWaitMs)) {
    return RefuseFile(rec, ERROR_CODE_WAIT_SERVERRESPOND_DOWN,
                      " ERROR_CODE_WAIT_SERVERRESPOND_DOWN \n");
  }
  const int result = m_nErrorCode;
  if (result == RESULT_OK) return true;
  return RefuseFile(rec, result, "m_nErrorCode1 = " + std::to_string(result) + "  \n");
}

bool CKQFileTransServiceClient::RefuseFile(Channel_Key_Value& rec, int result,
                                           const std::string& message) {
  CloseFile();
  rec.m_nStatus = result;
  WriteLog(kReceiveLog + message);
  return false;
}

// A stop and an end message both end the file as a success, also an end with
// an error code; that stays in m_nServerErrorCode only. Kept on purpose.
bool CKQFileTransServiceClient::WatchFile(Channel_Key_Value& rec) {
  // A write that failed before the answer came has been overwritten by it.
  if (m_pState->m_bWriteFailed) m_nErrorCode = ERROR_CODE_CLIENT_WRITE;
  std::int64_t since = CTimeConvert::GetCurTime();
  // Under a limit a single packet may take long: then its parts count, too.
  const auto moved = [this] {
    const bool limited = m_pState->m_pRateLimit != nullptr;
    return m_llTransBytes + (limited ? m_pNetWork->BytesReceived() : 0);
  };
  std::int64_t last = moved();
  while (!IsTransStopped()) {
    if (m_evFileEnd->Wait(kWatchStepMs) != kWaitTimeout) return true;
    const std::int64_t now = CTimeConvert::GetCurTime();
    if (std::abs(now - since) > kStallSeconds) {
      if (moved() == last) {
        rec.m_nStatus = ERROR_CODE_DOWN_STALLED;
        return false;
      }
      last = moved();
      since = now;
    }
    const int error = m_pState->m_bWriteFailed ? ERROR_CODE_CLIENT_WRITE : m_nErrorCode.Load();
    if (error != RESULT_OK) {
      rec.m_nStatus = error;
      return false;
    }
    const int serverError = m_nServerErrorCode;
    if (serverError != RESULT_OK) {
      rec.m_nStatus = serverError;
      return false;
    }
  }
  return true;
}

void CKQFileTransServiceClient::CloseFile() {
  if (RaiseStopReceive()) {
    CKQPlatForm::KQSleep(kHandOverMs);
    for (int i = 0; i < kHandOverSteps && m_bWriting; ++i) CKQPlatForm::KQSleep(kHandOverStepMs);
  }
  LeaveFile();
}

bool CKQFileTransServiceClient::StopReceiveData() {
  m_bStopReceive = true;
  CKQPlatForm::KQSleep(kHandOverMs);
  for (int i = 0; i < kHandOverSteps; ++i) {
    if (!m_bWriting) return true;
    CKQPlatForm::KQSleep(kHandOverStepMs);
  }
  return false;
}

// The event falls before the stop rises, so that a confirmation which comes
// at once is not lost.
int CKQFileTransServiceClient::StopTrans() {
  m_evTransEnd->ResetKQEvent();
  if (!RaiseStop()) return RESULT_OK;
  return m_evTransEnd->Wait(kStopWaitMs) == kWaitTimeout ? 0 : RESULT_OK;
}
