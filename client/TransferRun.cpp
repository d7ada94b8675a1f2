// Runs: which worker's transfer is the client's current one.
//
// Prepare begins a run and thereby supersedes a worker that still runs; the
// worker that is started then takes it. Flags and statuses are written only
// on behalf of the current run, under the mutex of SState.

#include "client/TransferRun.h"

#include <algorithm>
#include <functional>
#include <string>
#include <utility>

#include "client/ClientState.h"
#include "client/KQFileTransServiceClient.h"
#include "platform/KQEvent.h"
#include "platform/KQFile.h"
#include "platform/System.h"

namespace {

thread_local CTransferRun* t_pRun = nullptr;

}  // namespace

CTransferRun::CTransferRun() {
  t_pRun = this;
}

CTransferRun::~CTransferRun() {
  t_pRun = nullptr;
}

CTransferRun* CTransferRun::OfThread() {
  return t_pRun;
}

void CKQFileTransServiceClient::BeginRun(int mode, std::vector<Channel_Key_Value> records) {
  const std::lock_guard guard(m_pState->m_mutex);
  m_pState->m_ullRun += 1;  // before m_bStop falls: a running worker must not miss both
  m_vecKey = std::move(records);
  m_pState->m_nMode = mode;
  m_pState->m_bTaken = false;
  m_pState->m_nRecord = 0;
  m_pState->m_llRecordSize = 0;
  m_pState->m_llBefore = 0;
  m_nTransState = mode;
  m_bStop = false;
  m_bFinished = false;
  m_TotalTransBytes = 0;
  m_llTransBytes = 0;
  m_evReply->ResetKQEvent();
  m_evTransEnd->ResetKQEvent();
}

// False when another worker took the run, or it is none of this worker's
// kind: the request that this worker was started for has been replaced.
bool CKQFileTransServiceClient::TakeRun(int mode, CTransferRun& run) {
  const std::lock_guard guard(m_pState->m_mutex);
  if (m_pState->m_bTaken || m_pState->m_nMode != mode) return false;
  m_pState->m_bTaken = true;
  run.m_ullNumber = m_pState->m_ullRun;
  run.m_vecKey = m_vecKey;
  return true;
}

void CKQFileTransServiceClient::BeginRecord(std::uint64_t number, std::size_t index,
                                            std::int64_t size) {
  const std::lock_guard guard(m_pState->m_mutex);
  if (number != m_pState->m_ullRun) return;
  m_pState->m_nRecord = index;
  m_pState->m_llRecordSize = size;
  m_pState->m_llBefore = m_llTransBytes;
}

STransferState CKQFileTransServiceClient::GetTransferState() const {
  const std::lock_guard guard(m_pState->m_mutex);
  STransferState state;
  state.m_llDone = m_llTransBytes;
  state.m_llTotal = m_TotalTransBytes;
  state.m_nRecord = m_pState->m_nRecord;
  if (state.m_nRecord >= m_vecKey.size()) return state;
  state.m_strPath = m_vecKey[state.m_nRecord].m_strPath;
  state.m_strName = m_vecKey[state.m_nRecord].m_strName;
  state.m_llFileSize = m_pState->m_llRecordSize;
  // More may come than was announced.
  state.m_llFileDone = std::clamp<std::int64_t>(state.m_llDone - m_pState->m_llBefore, 0,
                                                std::max<std::int64_t>(state.m_llFileSize, 0));
  return state;
}

// The thread leaves the gate, not its entry: hosts may call that themselves.
bool CKQFileTransServiceClient::StartWorker(void* (*entry)(void*)) {
  std::function<void()> body = [entry, this, state = m_pState] {
    entry(this);
    state->m_gate.Leave();  // from here on the client may be gone
  };
  m_pState->m_gate.Enter();
  if (System().StartThread(std::move(body)) == ESystemError::kNone) return true;
  m_pState->m_gate.Leave();
  return false;
}

// The state falls before the event is set: whoever wakes finds the client
// idle.
void CKQFileTransServiceClient::FinishRun(std::uint64_t number, bool signalEnd) {
  const std::lock_guard guard(m_pState->m_mutex);
  if (number != m_pState->m_ullRun) return;
  m_bStop = true;
  m_nTransState = PROCESS_TYPE_NONE;
  m_bFinished = true;  // whoever sees it may start the next transfer
  if (signalEnd) m_evTransEnd->SetKQEvent();
}

// One step for StopTrans: it either comes first and is obeyed, or finds the
// client idle.
bool CKQFileTransServiceClient::FinishUnlessStopped(std::uint64_t number) {
  const std::lock_guard guard(m_pState->m_mutex);
  if (number != m_pState->m_ullRun) return true;
  if (m_bStop) return false;
  m_bStop = true;
  m_nTransState = PROCESS_TYPE_NONE;
  m_bFinished = true;
  return true;
}

void CKQFileTransServiceClient::StoreStatus(std::uint64_t number, std::size_t index,
                                            std::int32_t status) {
  const std::lock_guard guard(m_pState->m_mutex);
  if (number == m_pState->m_ullRun) m_vecKey[index].m_nStatus = status;
}

std::vector<Channel_Key_Value> CKQFileTransServiceClient::CopyRecords() const {
  const std::lock_guard guard(m_pState->m_mutex);
  return m_vecKey;
}

bool CKQFileTransServiceClient::IsSuperseded() const {
  const CTransferRun* run = CTransferRun::OfThread();
  return run != nullptr && run->m_ullNumber != m_pState->m_ullRun;
}

bool CKQFileTransServiceClient::IsTransStopped() const {
  return m_bStop || IsSuperseded();
}

// On behalf of the current run only: a superseded worker must not shut the
// new one's ear. False when the caller is superseded.
bool CKQFileTransServiceClient::RaiseStopReceive() {
  const std::lock_guard guard(m_pState->m_mutex);
  if (IsSuperseded()) return false;
  m_bStopReceive = true;
  return true;
}

// False when no transfer runs.
bool CKQFileTransServiceClient::RaiseStop() {
  const std::lock_guard guard(m_pState->m_mutex);
  m_bStop = true;
  const int state = m_nTransState;
  return state == PROCESS_TYPE_CLIENT_UPDATA || state == PROCESS_TYPE_CLIENT_DOWNDATA;
}

// A worker works through a handle of its own, so that it keeps its file when
// another takes over; m_pFile shows the current run's file to the rest of the
// object. False when there is no file.
bool CKQFileTransServiceClient::UseFile(std::shared_ptr<CFileHandle> file,
                                        const std::string& path) {
  const std::lock_guard guard(m_pState->m_mutex);
  if (CTransferRun* const run = CTransferRun::OfThread()) run->m_pFile = file;
  const bool open = file != nullptr;
  if (!IsSuperseded()) m_pFile->Attach(std::move(file), path);
  return open;
}

void CKQFileTransServiceClient::LeaveFile() {
  CTransferRun* const run = CTransferRun::OfThread();
  if (run == nullptr) {
    m_pFile->Close();
    return;
  }
  m_pFile->CloseIf(run->m_pFile);
  run->m_pFile.reset();
}
