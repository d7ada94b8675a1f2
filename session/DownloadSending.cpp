// Download sending: streams one file of the server to the client.
//
// Prepare opens the file and starts a sender, a detached thread that works on
// what the run captured then: its own file handle, position, link and epoch.
// So neither a second download nor the next link of the same client can make
// it send wrong bytes or touch a state that is no longer its own. Once it has
// ended a file the sender waits for the next one of its link. Shares
// m_bStopService and m_bStopTrans with the delivery thread; m_runMutex orders
// the end of a run against the start of the next one.

#include <new>
#include <string_view>
#include <utility>

#include "net/LinkBinding.h"
#include "net/LinkInfo.h"
#include "net/TransNet.h"
#include "platform/HardWareCommon.h"
#include "platform/KQFile.h"
#include "platform/KQThread.h"
#include "platform/System.h"
#include "protocol/DataBlock.h"
#include "protocol/MessageCodes.h"
#include "protocol/Messages.h"
#include "protocol/ResultCodes.h"
#include "protocol/TransferTypes.h"
#include "session/SessionState.h"
#include "session/TransClient.h"

namespace {

constexpr int kStopLookMs = 50;  // how late a sender that waits for room notices a stop

}  // namespace

struct CTransClient::SSendRun {
  CTransClient* m_pSession = nullptr;
  std::shared_ptr<SState> m_pState;  // the session's
  std::uint64_t m_ullLinkEpoch = 0;
  std::uint64_t m_ullRun = 0;
  int m_nLinkPort = 0;
  ILinkInfo* m_pLink = nullptr;          // the network's; null when there was none
  std::shared_ptr<CFileHandle> m_pFile;  // null when it was closed at once
  std::string m_strPath;
  KQLonglong m_llPosition = 0;  // of the next packet's first data byte
  bool m_bStays = false;        // its thread waits for the next one
  std::int64_t m_llBegan = 0;   // ms, steady
  std::int64_t m_llBytes = 0;   // sent

  STransferFacts Facts(unsigned int ip) const {
    STransferFacts facts;
    facts.m_nIP = ip;
    facts.m_nPort = m_nLinkPort;
    facts.m_strPath = m_strPath;
    facts.m_llBytes = m_llBytes;
    facts.m_llMilliseconds = System().SteadyMilliseconds() - m_llBegan;
    return facts;
  }
};

void CTransClient::StopDownload() {
  m_bStopTrans = true;  // the sender acknowledges it
  WriteLog("DealNetMsg NET_CTS_TRANS_STOP \n");
}

void CTransClient::AnswerFilesSize(int nLength, const char* data) {
  const KQLonglong nSize = GetFilesSize(nLength, data);
  SendMsg(NET_CTS_REQUEST_SERVERFILESIZE, EncodeBody(STotalSize{nSize}));
  WriteLog("DealNetMsg NET_CTS_REQUEST_SERVERFILESIZE  nSize = " + std::to_string(nSize) + " \n ");
}

// Cuts the list in place: as a list of strings it would take many times the
// memory of the message.
KQLonglong CTransClient::GetFilesSize(int nLength, const char* data) {
  std::string_view rest(data, static_cast<std::size_t>(nLength));
  std::uint64_t total = 0;
  while (!rest.empty()) {
    const std::string name(TakeName(rest));
    if (!name.empty()) total += CHardWareCommon::GetFileSize(name);
  }
  return static_cast<KQLonglong>(total);
}

void CTransClient::AnswerPrepareDown(int nLength, const char* data) {
  const auto start = DecodeBody<SDownloadStart>(data, nLength);
  const bool refused =
      start && !Allows(&ITransNet::MayDownload, Facts(start->m_strPath), ERefusal::kDownload);
  const int result = refused ? static_cast<int>(ERROR_CODE_SERVER_OPENFILE)
                             : PrepareDownFileData(static_cast<unsigned>(nLength), data);
  SendMsg(NET_CTS_PREPARETRANS_FILE, EncodeBody(SResult{result}));
  WriteLog("DealNetMsg NET_CTS_PREPARETRANS_FILE \n");
  if (start && !refused && result != RESULT_OK) {
    TellFailed(&ITransNet::OnDownloaded, start->m_strPath, result);
  }
}

int CTransClient::PrepareDownFileData(unsigned int nLength, const char* data) {
  if (m_bStopService) {
    WriteLog("CTransClient::PrepareDownFileData m_bStopService = true \n");
    return ERROR_CODE_STOP_SERVICE;
  }
  if (m_nTransType == PROCESS_TYPE_CLIENT_UPDATA) {
    WriteLog(
        "CTransClient::PrepareDownFileData m_nTransType == PROCESS_TYPE_CLIENT_UPDATA "
        "ERROR_CODE_CLIENT_UPDATA \n");
    return ERROR_CODE_CLIENT_UPDATA;
  }
  // A running download is not refused, kept on purpose: its file is replaced
  // by the new one, so it ends, and the new one starts beside it.
  m_bStopTrans = false;
  const auto start = DecodeBody<SDownloadStart>(data, static_cast<int>(nLength));
  if (!start) {
    WriteLog("CTransClient::PrepareDownFileData nLength < sizeof(KQLonglong) \n");
    return 0;
  }
  m_llSendPos = start->m_llPosition;
  const std::string path(start->m_strPath);
  if (!m_pTransFile->KQOpen(path, "rb")) {
    WriteLog("CTransClient::PrepareDownFileData open file rb Fail. " + path + "\n");
    return ERROR_CODE_SERVER_OPENFILE;
  }
  return StartSender(start->m_llPosition, path) ? RESULT_OK : ERROR_CODE_SERVER_OPENFILE;
}

// The position is passed, not read back: an older sender moves m_llSendPos too.
bool CTransClient::StartSender(KQLonglong position, const std::string& path) {
  auto run = std::make_shared<SSendRun>();
  run->m_pSession = this;
  run->m_pState = m_pState;
  run->m_nLinkPort = m_nLinkPort;
  if (m_pTransNet != nullptr) run->m_pLink = m_pTransNet->GetLinkInfo(m_nLinkIP, run->m_nLinkPort);
  run->m_pFile = m_pTransFile->GetHandle();
  run->m_strPath = path;
  run->m_llPosition = position;
  run->m_llBegan = System().SteadyMilliseconds();
  {
    const std::lock_guard<std::mutex> lock(m_pState->m_runMutex);
    run->m_ullLinkEpoch = m_pState->m_ullLinkEpoch;
    run->m_ullRun = ++m_pState->m_ullRun;
    m_nTransType = PROCESS_TYPE_CLIENT_DOWNDATA;
    if (std::exchange(m_pState->m_bSenderStays, false)) {
      m_pState->m_pHanded = std::move(run);
      m_pState->m_nextRun.notify_one();
      return true;
    }
  }
  m_pState->m_senderGate.Enter();
  auto own = std::make_unique<std::shared_ptr<SSendRun>>(std::move(run));
  CKQThread thread;
  if (thread.CreateKQThread(SendFileThread, own.get())) {
    static_cast<void>(own.release());  // the thread's from here on
    return true;
  }
  m_pState->m_senderGate.Leave();
  m_pTransFile->Close();
  m_nTransType = PROCESS_TYPE_NONE;
  return false;
}

void* CTransClient::SendFileThread(void* run) {
  const std::unique_ptr<std::shared_ptr<SSendRun>> first(
      static_cast<std::shared_ptr<SSendRun>*>(run));
  const std::shared_ptr<SState> state = (*first)->m_pState;
  bool stays = true;
  for (auto own = std::move(*first); own != nullptr; own = stays ? NextRun(*state) : nullptr) {
    try {
      own->m_pSession->SendFileToClient(*own);
    } catch (...) {
      // Out of memory at the very end: the client runs into its time-out.
    }
    stays = own->m_bStays;
    own.reset();
  }
  state->m_senderGate.Leave();
  return nullptr;
}

// Null when there is none for this thread any more.
std::shared_ptr<CTransClient::SSendRun> CTransClient::NextRun(SState& state) {
  std::unique_lock<std::mutex> lock(state.m_runMutex);
  state.m_nextRun.wait(lock, [&] { return state.m_pHanded != nullptr || !state.m_bSenderStays; });
  return std::exchange(state.m_pHanded, nullptr);
}

// Before the end of the file is told: whoever hears of it may ask for the next
// one at once. One stays, and none of an old link.
void CTransClient::StayForNextRun(SSendRun& run) {
  const std::lock_guard<std::mutex> lock(m_pState->m_runMutex);
  if (run.m_ullLinkEpoch != m_pState->m_ullLinkEpoch || m_bStopService) return;
  if (m_pState->m_nWaiters > 0) return;
  run.m_bStays = !std::exchange(m_pState->m_bSenderStays, true);
}

void CTransClient::DismissSender() {
  const std::lock_guard<std::mutex> lock(m_pState->m_runMutex);
  m_pState->m_bSenderStays = false;
  m_pState->m_nextRun.notify_all();
}

void CTransClient::SendFileToClient(SSendRun& run) {
  int end = ERROR_CODE_SEND_STOPPED;
  try {
    end = StreamFile(run);
  } catch (const std::bad_alloc&) {
    end = ERROR_CODE_SEND_STOPPED;
  }
  STransferFacts facts = run.Facts(m_nLinkIP);
  facts.m_nResult = end;
  Tell(&ITransNet::OnDownloaded, facts);  // before the client knows
  FinishRun(run, end);
}

// Returns the end code: RESULT_OK only when a read came to the end of the file.
int CTransClient::StreamFile(SSendRun& run) {
  const bool found = run.m_pFile != nullptr && run.m_pFile->Seek(run.m_llPosition);
  if (!found && !IsStale(run)) {
    // Sent from the start instead, kept on purpose.
    WriteLog("CTransClient::SendFileToClient seek Fail. " + std::to_string(run.m_llPosition) + " " +
             run.m_strPath + "\n");
  }
  CDataBlock block([] { return new CIOCPBuffer(kSendBufferBytes, true, false, 0); },
                   [](CIOCPBuffer* buffer) { delete buffer; });
  while (!m_bStopTrans) {
    if (m_bStopService || IsStale(run)) break;
    if (!Allows(&ITransNet::MaySend, run.Facts(m_nLinkIP), ERefusal::kDownloadRest)) break;
    const int n = run.m_pFile == nullptr ? 0 : block.Read(*run.m_pFile, kReadBlockBytes);
    if (n == 0) return RESULT_OK;
    if (!SendBuffer(run.m_pLink, block, run)) break;
  }
  return ERROR_CODE_SEND_STOPPED;
}

bool CTransClient::SendBuffer(ILinkInfo* pLinkInfo, CDataBlock& block, SSendRun& run) {
  if (pLinkInfo == nullptr || !pLinkInfo->IsLink()) {
    if (!IsStale(run)) {
      WriteLog("CTransClient::SendBuffer pLinkInfo == NULL || !pLinkInfo->IsLink()  \n");
    }
    return false;
  }
  for (int piece = block.NextBytes(); piece > 0; piece = block.NextBytes()) {
    if (!WaitForRoom(*pLinkInfo, run)) return false;
    CIOCPBuffer* const buffer = block.Next(NET_STC_TRANSFILEDATA, run.m_llPosition);
    run.m_llPosition += piece;
    run.m_llBytes += piece;
    m_llSendPos = run.m_llPosition;
    if (!m_pTransNet->SendText(pLinkInfo, buffer)) return false;
  }
  return true;
}

// False when the run must send no more. Once a stop is seen, what is in hand
// is queued without waiting.
bool CTransClient::WaitForRoom(ILinkInfo& link, const SSendRun& run) const {
  while (!m_bStopTrans && !m_bStopService && !IsStale(run) && !link.WaitSendRoom(kStopLookMs)) {
  }
  return !IsStale(run);
}

// True once the session serves another link than the one of the run.
bool CTransClient::IsStale(const SSendRun& run) const {
  const std::lock_guard<std::mutex> lock(m_pState->m_runMutex);
  return run.m_ullLinkEpoch != m_pState->m_ullLinkEpoch;
}

void CTransClient::FinishRun(SSendRun& run, int end) {
  if (IsStale(run)) return;
  m_pTransFile->CloseIf(run.m_pFile);
  StayForNextRun(run);
  const std::string body = EncodeBody(SResult{end});
  SendToRun(run, NET_STC_TRANSFILEDATA_END, body.data(), static_cast<int>(body.size()));
  if (m_bStopTrans) SendToRun(run, NET_CTS_TRANS_STOP, nullptr, 0);
  const std::lock_guard<std::mutex> lock(m_pState->m_runMutex);
  if (run.m_ullLinkEpoch == m_pState->m_ullLinkEpoch && run.m_ullRun == m_pState->m_ullRun) {
    m_nTransType = PROCESS_TYPE_NONE;
  }
}

// To the link the run began on: one that comes between the look and the send
// is not reached.
void CTransClient::SendToRun(const SSendRun& run, int msgType, const void* body, int nLength) {
  const CLinkBinding answers(run.m_pLink);
  if (!IsStale(run)) SendFrame(run.m_nLinkPort, msgType, body, nLength);
}
