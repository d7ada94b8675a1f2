// Bulk upload: announcements, data and ends of many files behind one another.
//
// The server answers in the order in which it was asked, two answers a file:
// each concerns the oldest file on its way. One that is left out, or comes twice,
// shows by its kind: an announcement's is never followed by another one's. The
// worker sends, the delivery thread matches; what is on its way stays below
// what a server takes for a flood of questions.

#include <numeric>
#include <utility>

#include "client/BulkState.h"
#include "client/ClientState.h"
#include "client/KQFileBulkTransfer.h"
#include "client/ReadAhead.h"
#include "client/TransferRun.h"
#include "net/LinkInfo.h"
#include "net/Pacing.h"
#include "platform/HardWareCommon.h"
#include "platform/KQEvent.h"
#include "platform/KQFile.h"
#include "platform/System.h"
#include "protocol/MeasurementFiles.h"
#include "protocol/MessageCodes.h"
#include "protocol/Messages.h"
#include "protocol/TransferTypes.h"

namespace {

constexpr int kAnswersPerFile = 2;
constexpr std::size_t kMostOnWay = kQuestionsAtOnce / kAnswersPerFile;

// So many are on their way when the worker wakes: the server does not wait for
// the next ones, and the worker is not woken for each.
constexpr std::size_t kCallAgainAt = kMostOnWay / 2;

bool EndsTransfer(int result) {
  return result == ERROR_CODE_WAIT_SERVERRESPOND || result == ERROR_CODE_WAIT_TRANSEND ||
         result == ERROR_CODE_CLIENT_SENDDATA;
}

}  // namespace

bool CKQFileBulkTransfer::TakeUploadAnswer(int code, int length, const char* body) {
  if (code != NET_CTS_PREPARETRAN_FILE && code != NET_CTS_TRANSFILEDATA_END &&
      code != NET_STC_WRITEDATA_ERROR) {
    return false;
  }
  const std::lock_guard lock(m_pBulk->m_mutex);
  std::deque<SBulk::SOnWay>& files = m_pBulk->m_onWay;
  if (files.empty()) {
    if (code != NET_CTS_TRANSFILEDATA_END) return false;
    m_evFileEnd->SetKQEvent();  // under the mutex: SendRecording knows what is to come
    return true;
  }
  SBulk::SOnWay& oldest = files.front();
  if (code == NET_CTS_PREPARETRAN_FILE && oldest.m_bAnnounced) {
    EndOldest(ERROR_CODE_WAIT_TRANSEND);  // its end was not answered
    Distrust();
    return true;
  }
  if (code == NET_CTS_TRANSFILEDATA_END) {
    const bool inTurn = oldest.m_bAnnounced && oldest.m_bEnded;
    EndOldest(inTurn ? oldest.m_nResult : int{ERROR_CODE_WAIT_SERVERRESPOND});
    if (!inTurn) Distrust();
    return true;
  }
  const auto answer = DecodeBody<SResult>(body, length);
  const bool isWhole =
      code == NET_STC_WRITEDATA_ERROR || DecodeBody<SUploadStartAnswer>(body, length).has_value();
  if (!answer || !isWhole) return true;
  ++m_pBulk->m_ullEvents;
  if (code == NET_CTS_PREPARETRAN_FILE) oldest.m_bAnnounced = true;
  if (answer->m_nResult == RESULT_OK || oldest.m_nResult != RESULT_OK) return true;
  oldest.m_nResult = answer->m_nResult;
  if (!oldest.m_bEnded) m_nServerErrorCode = answer->m_nResult;  // the worker is at it
  return true;
}

// Under the mutex.
void CKQFileBulkTransfer::EndOldest(int result) {
  const SBulk::SOnWay file = m_pBulk->m_onWay.front();
  m_pBulk->m_onWay.pop_front();
  ++m_pBulk->m_ullEvents;
  if (file.m_ullRun != 0 && file.m_ullRun == m_pBulk->m_ullRun) {
    if (result == ERROR_CODE_SERVER_DOWNDATA) {
      m_pBulk->m_vecAgain.push_back(file.m_nRecord);
    } else {
      StoreStatus(file.m_ullRun, file.m_nRecord, result);
    }
  }
  if (m_pBulk->m_onWay.size() <= m_pBulk->m_nMostOnWay) m_pBulk->m_changed.notify_all();
}

std::size_t CKQFileBulkTransfer::CountOnWay() {
  const std::lock_guard lock(m_pBulk->m_mutex);
  return m_pBulk->m_onWay.size();
}

// Waits until at most `most` files are on their way. Returns 1; -19 or -21
// when the next answer is overdue; -28 when the transfer has to stop.
int CKQFileBulkTransfer::WaitOnWay(std::size_t most) {
  std::unique_lock lock(m_pBulk->m_mutex);
  m_pBulk->m_nMostOnWay = most;
  const auto isOver = [&] {
    return m_pBulk->m_onWay.size() <= most || m_bStop || m_pBulk->m_bBroken;
  };
  std::int64_t since = System().SteadyMilliseconds();
  std::uint64_t seen = CountEvents();
  while (!isOver() && !IsTransStopped()) {
    System().Wait(m_pBulk->m_changed, lock, kBulkStepMs, isOver);
    const std::int64_t now = System().SteadyMilliseconds();
    const std::uint64_t events = CountEvents();
    const bool moved = std::exchange(seen, events) != events;
    if (moved || m_pBulk->m_onWay.empty()) {
      since = now;
      continue;
    }
    const SBulk::SOnWay& oldest = m_pBulk->m_onWay.front();
    if (now - since < (oldest.m_bAnnounced ? kFileEndWaitMs : kPrepareWaitMs)) continue;
    const int result =
        oldest.m_bAnnounced ? ERROR_CODE_WAIT_TRANSEND : ERROR_CODE_WAIT_SERVERRESPOND;
    StoreStatus(oldest.m_ullRun, oldest.m_nRecord, result);
    m_pBulk->m_bSilent = true;
    return result;
  }
  return IsTransStopped() || m_pBulk->m_bBroken ? ERROR_CODE_SEND_STOPPED : RESULT_OK;
}

// Whatever happens, the run is finished: callers wait for that.
void CKQFileBulkTransfer::SendFileToServer() {
  CTransferRun run;
  bool begun = false;
  try {
    if (!TakeRun(PROCESS_TYPE_CLIENT_UPDATA, run)) return;
    begun = BeginBulk(run);
    if (begun && WaitUntilDrained(run)) SendAll(run);
  } catch (...) {  // no memory, as a rule
    LeaveFile();
    StoreStatus(run.m_ullNumber, run.m_nRecord, ERROR_CODE_CLIENT_SENDCMD);
  }
  if (begun) EndBulk(run);
  FinishRun(run.m_ullNumber, true);
}

void CKQFileBulkTransfer::SendAll(CTransferRun& run) {
  CReadAhead ahead(run.m_vecKey);
  std::vector<std::size_t> records(run.m_vecKey.size());
  std::iota(records.begin(), records.end(), std::size_t{0});
  for (int refusals = 0; !records.empty(); ++refusals) {
    for (std::size_t i = 0; i < records.size(); ++i) {
      const bool pauses =
          i + 1 == records.size() || IsMeasurementFile(run.m_vecKey[records[i + 1]].m_strPath);
      if (IsTransStopped() || IsBroken()) return;
      if (SendOne(run, ahead, records[i], pauses) != RESULT_OK) return;
    }
    if (WaitOnWay(0) != RESULT_OK) return;
    {
      const std::lock_guard lock(m_pBulk->m_mutex);
      records = std::exchange(m_pBulk->m_vecAgain, {});
    }
    if (records.empty()) return;
    if (refusals == kMostRefusals) break;
    System().Sleep(kReadyPauseMs);
  }
  for (const std::size_t record : records) {
    StoreStatus(run.m_ullNumber, record, ERROR_CODE_SERVER_DOWNDATA);
  }
}

// @param pauses nothing follows it at once
// @return another result than 1 ends the transfer
int CKQFileBulkTransfer::SendOne(CTransferRun& run, CReadAhead& ahead, std::size_t record,
                                 bool pauses) {
  run.m_nRecord = record;
  const int result = IsMeasurementFile(run.m_vecKey[record].m_strPath)
                         ? SendRecording(run, record)
                         : SendOrdinary(run, ahead, record, pauses);
  // An overdue answer is that of an older file.
  const bool isOwn = result != ERROR_CODE_WAIT_SERVERRESPOND && result != ERROR_CODE_WAIT_TRANSEND;
  if (result == RESULT_OK || result == ERROR_CODE_SEND_STOPPED || !isOwn) return result;
  StoreStatus(run.m_ullNumber, record, result);
  WriteLog("CKQFileBulkTransfer " + run.m_vecKey[record].m_strName + " " + std::to_string(result) +
           " \n");
  return EndsTransfer(result) ? result : RESULT_OK;
}

// As the base sends it, with nothing else on its way.
int CKQFileBulkTransfer::SendRecording(CTransferRun& run, std::size_t record) {
  int result = WaitOnWay(0);
  if (result != RESULT_OK) return result;
  Channel_Key_Value& rec = run.m_vecKey[record];
  m_nErrorCode = RESULT_OK;
  m_nServerErrorCode = RESULT_OK;
  BeginRecord(run.m_ullNumber, record, FileBytes(rec.m_strPath));
  result = SendRecord(rec);
  if (result == ERROR_CODE_WAIT_SERVERRESPOND || result == ERROR_CODE_WAIT_TRANSEND ||
      (result == ERROR_CODE_GETLOSTINFO && m_nErrorCode == RESULT_OK)) {
    const std::lock_guard lock(m_pBulk->m_mutex);
    m_pBulk->m_bSilent = true;
  }
  if (IsTransStopped() || !m_bConnect) {
    LeaveUnanswered(record, result);
    return ERROR_CODE_SEND_STOPPED;
  }
  if (result == RESULT_OK) {
    StoreStatus(run.m_ullNumber, record, result);
    return result;
  }
  if (result == ERROR_CODE_GETLOSTINFO) {
    const int told = m_nErrorCode;
    if (told == RESULT_OK) {  // nothing was told
      StoreStatus(run.m_ullNumber, record, result);
      return ERROR_CODE_WAIT_SERVERRESPOND;
    }
    if (told == ERROR_CODE_LOSTINFO_RECORD || told == ERROR_CODE_LOSTINFO_ACCESS) result = told;
    return result;
  }
  if (EndsTransfer(result)) {
    StoreStatus(run.m_ullNumber, record, result);
    return result;
  }
  {
    // It may be open there.
    const std::lock_guard lock(m_pBulk->m_mutex);
    m_pBulk->m_onWay.push_back({0, record, true, true, RESULT_OK});
  }
  SendMessage(NET_CTS_TRANSFILEDATA_END, nullptr, 0);
  return result;
}

// The answer to the end of a file finds it when it comes; one to a question
// would pass for that to the next.
void CKQFileBulkTransfer::LeaveUnanswered(std::size_t record, int result) {
  const std::lock_guard lock(m_pBulk->m_mutex);
  if (!m_pBulk->m_bSilent) return;
  if (result != ERROR_CODE_WAIT_TRANSEND) return Distrust();
  if (m_evFileEnd->Wait(0) == kWaitTimeout) {
    m_pBulk->m_onWay.push_back({0, record, true, true, RESULT_OK});
  }
  m_pBulk->m_bSilent = false;
}

int CKQFileBulkTransfer::SendOrdinary(CTransferRun& run, CReadAhead& ahead, std::size_t record,
                                      bool pauses) {
  const Channel_Key_Value& rec = run.m_vecKey[record];
  if (rec.m_strName.size() > kMaxNameBytes) return ERROR_CODE_CLIENT_SENDCMD;
  if (!UseFile(ahead.Take(record), rec.m_strPath)) {
    return ERROR_CODE_CLIENT_OPENFILE;
  }
  const std::int64_t size = FileBytes(rec.m_strPath);
  BeginRecord(run.m_ullNumber, record, size);
  int result = CountOnWay() < kMostOnWay ? int{RESULT_OK} : WaitOnWay(kCallAgainAt);
  if (result == RESULT_OK) result = SendFileData(run, record, size, pauses);
  LeaveFile();
  return result;
}

// From the announcement to the end, which goes out in any case: the server has
// the file open.
int CKQFileBulkTransfer::SendFileData(CTransferRun& run, std::size_t record, std::int64_t size,
                                      bool pauses) {
  m_nServerErrorCode = RESULT_OK;
  const ILinkInfo* const link = m_pLinkInfo;
  {
    const std::lock_guard lock(m_pBulk->m_mutex);
    m_pBulk->m_onWay.push_back({run.m_ullNumber, record, false, false, RESULT_OK});
  }
  const std::string announcement = EncodeBody(SUploadStart{true, run.m_vecKey[record].m_strName});
  if (!SendInTurn(NET_CTS_PREPARETRAN_FILE, announcement)) {
    const std::lock_guard lock(m_pBulk->m_mutex);
    if (!m_pBulk->m_onWay.empty()) m_pBulk->m_onWay.pop_back();
    return ERROR_CODE_CLIENT_SENDDATA;
  }
  std::int64_t done = 0;
  int result = ReadDataAndSend(0, size, 0, done);
  if (result == RESULT_OK && done < size) result = ERROR_CODE_SEND_STOPPED;
  if (result == ERROR_CODE_CLIENT_SENDDATA || m_pLinkInfo != link) {
    return ERROR_CODE_CLIENT_SENDDATA;  // nothing to be ended on another link
  }
  bool waits = pauses;
  {
    const std::lock_guard lock(m_pBulk->m_mutex);
    std::deque<SBulk::SOnWay>& files = m_pBulk->m_onWay;
    waits = waits || files.size() >= kMostOnWay;
    if (!files.empty() && files.back().m_nRecord == record) {
      SBulk::SOnWay& own = files.back();
      own.m_bEnded = true;
      if (own.m_nResult == RESULT_OK) own.m_nResult = result;
    }
  }
  // Who does not come back for room at once sends all that is queued.
  const bool sent = waits ? SendMessage(NET_CTS_TRANSFILEDATA_END, nullptr, 0)
                          : SendInTurn(NET_CTS_TRANSFILEDATA_END, "");
  return sent ? RESULT_OK : ERROR_CODE_CLIENT_SENDDATA;
}

// Several small packets leave in one call.
bool CKQFileBulkTransfer::SendInTurn(int code, const std::string& body) {
  ILinkInfo* const link = m_pLinkInfo;
  while (link != nullptr && !link->WaitSendRoom(kBulkStepMs) && !IsTransStopped()) {
  }
  return SendText(code, body);
}
