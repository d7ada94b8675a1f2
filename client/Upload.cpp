// Upload: sends every file of a request, one after the other.
//
// UpdateFileToDataService checks and starts a worker; the worker announces
// each file, pumps it in blocks of 1 MiB and waits for the server to confirm
// its end. The first file that fails ends the upload.

#include <algorithm>
#include <memory>
#include <utility>

#include "client/ClientState.h"
#include "client/KQFileTransServiceClient.h"
#include "client/PositionMath.h"
#include "client/TransferRun.h"
#include "net/LinkInfo.h"
#include "platform/ExpertUtils.h"
#include "platform/HardWareCommon.h"
#include "platform/KQEvent.h"
#include "platform/KQFile.h"
#include "platform/System.h"
#include "protocol/DataBlock.h"
#include "protocol/MeasurementFiles.h"
#include "protocol/MessageCodes.h"
#include "protocol/Messages.h"
#include "protocol/ResultCodes.h"
#include "protocol/TransferTypes.h"

namespace {

void MakeReady(std::vector<Channel_Key_Value>& records, int status) {
  for (Channel_Key_Value& rec : records) {
    rec.m_nStatus = status;
    EU::CExpertUtils::RelaceString(rec.m_strPath, "/", "\\");
  }
}

}  // namespace

// Any refusal, the busy codes included, also clears the state of a transfer
// that runs. Kept on purpose: a caller that repeats its call gets through.
int CKQFileTransServiceClient::UpdateFileToDataService(const std::string& xml) {
  return StartUpload(Prepare(PROCESS_TYPE_CLIENT_UPDATA, xml), -1);
}

int CKQFileTransServiceClient::UploadRecords(std::vector<Channel_Key_Value> records) {
  std::int64_t total = 0;
  for (const Channel_Key_Value& rec : records) {
    total += rec.m_llSize > 0 ? rec.m_llSize : FileBytes(rec.m_strPath);
  }
  return StartUpload(PrepareRecords(PROCESS_TYPE_CLIENT_UPDATA, std::move(records)), total);
}

// @param total bytes of all files; -1: not known yet
int CKQFileTransServiceClient::StartUpload(int result, std::int64_t total) {
  if (result != RESULT_OK) {
    m_nTransState = PROCESS_TYPE_NONE;
    return result;
  }
  if (total < 0) {
    total = 0;
    for (const Channel_Key_Value& rec : CopyRecords()) total += FileBytes(rec.m_strPath);
  }
  m_TotalTransBytes = total;
  if (StartWorker(&SendFile)) return RESULT_OK;
  FinishRun(m_pState->m_ullRun, true);
  return ERROR_CODE_CLIENT_SENDCMD;
}

int CKQFileTransServiceClient::Prepare(int mode, const std::string& xml) {
  const int result = CheckIdle();
  if (result != RESULT_OK) return result;
  std::vector<Channel_Key_Value> records;
  Channel_Key_Value::ConvertXMLToValue(xml, records);
  MakeReady(records, m_pState->m_nFirstStatus);
  std::string shown;
  for (const Channel_Key_Value& rec : records) {
    shown += "m_vecKey[i].m_strPath " + rec.m_strPath + "\n";
  }
  if (!shown.empty()) System().WriteStandard(true, shown);
  BeginRun(mode, std::move(records));
  return RESULT_OK;
}

int CKQFileTransServiceClient::PrepareRecords(int mode, std::vector<Channel_Key_Value> records) {
  const int result = CheckIdle();
  if (result != RESULT_OK) return result;
  MakeReady(records, m_pState->m_nFirstStatus);
  BeginRun(mode, std::move(records));
  return RESULT_OK;
}

int CKQFileTransServiceClient::CheckIdle() {
  if (!Connect(GuardedCopy(m_strServerIP), m_nServerPort)) return ERROR_CODE_CLIENT_CONNECT;
  const ILinkInfo* const link = m_pLinkInfo;
  if (link == nullptr || !link->IsLink()) return ERROR_CODE_CLIENT_CONNECT;
  const int state = m_nTransState;
  if (state == PROCESS_TYPE_CLIENT_UPDATA) return ERROR_CODE_CLIENT_BUSY_UPDATA;
  if (state == PROCESS_TYPE_CLIENT_DOWNDATA) return ERROR_CODE_CLIENT_BUSY_DOWNDATA;
  return RESULT_OK;
}

void* CKQFileTransServiceClient::SendFile(void* client) {
  static_cast<CKQFileTransServiceClient*>(client)->SendFileToServer();
  return nullptr;
}

// Whatever happens, the run is finished: callers wait for that.
void CKQFileTransServiceClient::SendFileToServer() {
  CTransferRun run;
  std::size_t i = 0;
  try {
    if (!TakeRun(PROCESS_TYPE_CLIENT_UPDATA, run)) return;
    for (; i < run.m_vecKey.size() && !IsTransStopped(); ++i) {
      run.m_nRecord = i;
      BeginRecord(run.m_ullNumber, i, FileBytes(run.m_vecKey[i].m_strPath));
      const int result = SendRecord(run.m_vecKey[i]);
      if (result == RESULT_OK) continue;
      StoreStatus(run.m_ullNumber, i, result);
      break;
    }
  } catch (...) {  // no memory, as a rule
    LeaveFile();
    StoreStatus(run.m_ullNumber, i, ERROR_CODE_CLIENT_SENDCMD);
  }
  FinishRun(run.m_ullNumber, true);
}

int CKQFileTransServiceClient::SendRecord(Channel_Key_Value& rec) {
  const bool resumable = IsMeasurementFile(rec.m_strPath);
  std::string name = rec.m_strName;
  std::int64_t skip = 0;
  if (resumable) {
    const int result = RebackAllLostInfo(rec, name, skip);
    if (result != RESULT_OK) return result;
    if (IsSuperseded()) return RESULT_OK;
  }
  const int result = PrepareTransFile(name, !resumable);
  if (result != RESULT_OK) return result;

  // An ordinary file is sent whole, whatever the server holds of it.
  if (!resumable) m_llServerFilePos = 0;
  const std::int64_t held = m_llServerFilePos;
  m_llTransBytes += held;
  const std::int64_t start = AddPositions(held, skip);
  std::int64_t done = 0;
  return SendSingleFileRange(rec, start, SubtractPositions(FileBytes(rec.m_strPath), start), held,
                             done);
}

int CKQFileTransServiceClient::PrepareTransFile(const std::string& name, bool whole) {
  m_llServerFilePos = 0;
  m_nServerErrorCode = RESULT_OK;
  m_nErrorCode = RESULT_OK;
  m_nBufTaken = 0;
  m_nBufReleased = 0;
  if (name.size() > kMaxNameBytes) return ERROR_CODE_CLIENT_SENDCMD;

  m_evReply->ResetKQEvent();
  if (!SendText(NET_CTS_PREPARETRAN_FILE, EncodeBody(SUploadStart{whole, name})))
    return ERROR_CODE_CLIENT_SENDCMD;
  if (!AwaitReply(kPrepareWaitMs)) return ERROR_CODE_WAIT_SERVERRESPOND;
  return m_nErrorCode;
}

int CKQFileTransServiceClient::SendSingleFileRange(Channel_Key_Value& rec, std::int64_t start,
                                                   std::int64_t len, std::int64_t base,
                                                   std::int64_t& done) {
  if (!UseFile(CFileHandle::Open(rec.m_strPath, "rb"), rec.m_strPath)) {
    return ERROR_CODE_CLIENT_OPENFILE;
  }
  const int result = ReadDataAndSend(start, len, base, done);
  LeaveFile();
  if (result != RESULT_OK) return result;
  // An end message now would end the file of the worker that took over.
  if (IsSuperseded()) return RESULT_OK;

  m_evFileEnd->ResetKQEvent();
  if (m_bConnect && SendMessage(NET_CTS_TRANSFILEDATA_END, nullptr, 0) &&
      !m_pState->Await(*this, *m_evFileEnd, kFileEndWaitMs)) {
    return ERROR_CODE_WAIT_TRANSEND;
  }
  return m_nServerErrorCode;
}

// A lost link is an error only where data is about to be sent; one that goes
// between two blocks raises m_bStop and ends the file like a stop.
int CKQFileTransServiceClient::ReadDataAndSend(std::int64_t start, std::int64_t len,
                                               std::int64_t base, std::int64_t& done) {
  const CTransferRun* const run = CTransferRun::OfThread();
  const std::shared_ptr<CFileHandle> file = run != nullptr ? run->m_pFile : m_pFile->GetHandle();
  if (file == nullptr || !file->Seek(start)) return ERROR_CODE_CLIENT_SEEK;
  done = 0;
  CDataBlock block([this] { return GetIOCPBuffer(); },
                   [this](CIOCPBuffer* buffer) { ReleaseBuffer(buffer); });
  if (IsTransStopped()) return RESULT_OK;

  // Under a limit a whole block may take long, and a stop waits for its end.
  const bool limited = m_pState->m_pRateLimit != nullptr;
  while (true) {
    const std::int64_t wanted =
        std::min<std::int64_t>(len - done, limited ? kMaxPieceBytes : kReadBlockBytes);
    const int bytes = block.Read(*file, static_cast<int>(std::max<std::int64_t>(wanted, 0)));
    if (bytes < 0) {  // no buffer: the send of the chunk that it was for has failed
      m_llTransBytes += NextPieceBytes(wanted);
      return ERROR_CODE_CLIENT_SENDDATA;
    }
    if (bytes != wanted) return ERROR_CODE_CLIENT_READ;
    TellRead(AddPositions(start, done), block);
    ILinkInfo* const link = m_pLinkInfo;
    if (link == nullptr || !link->IsLink()) return ERROR_CODE_CLIENT_SENDDATA;
    if (!SendBlock(link, AddPositions(base, done), block)) return ERROR_CODE_CLIENT_SENDDATA;
    done += bytes;
    if (done >= len) return RESULT_OK;
    const int serverError = m_nServerErrorCode;
    if (serverError != RESULT_OK) return serverError;
    if (IsTransStopped()) return RESULT_OK;
  }
}

void CKQFileTransServiceClient::TellRead(std::int64_t position, const CDataBlock& block) {
  const CTransferRun* const run = CTransferRun::OfThread();
  if (run == nullptr || !m_pState->m_readHook || IsSuperseded()) return;
  block.ForEachPiece([&](const char* data, int bytes) {
    m_pState->m_readHook(run->m_nRecord, position, data, bytes);
    position += bytes;
  });
}

void CKQFileTransServiceClient::SetReadHook(ReadHook hook) {
  m_pState->m_readHook = std::move(hook);
}
