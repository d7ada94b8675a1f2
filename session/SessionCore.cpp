// Session core: the life of a session, its log, its stop, its sends and the
// way of each message to its handler.
//
// The handlers lie in the other files of this folder, one per kind of request.

#include "session/SessionState.h"
#include "session/TransClient.h"

#include <cstring>
#include <utility>

#include "net/LayerThread.h"
#include "net/NetBuffer.h"
#include "net/NetWorkManageEx.h"
#include "net/NetWorkPackHead.h"
#include "net/TransNet.h"
#include "platform/KQFile.h"
#include "platform/KQPlatForm.h"
#include "platform/LogFile.h"
#include "platform/ThreadLock.h"
#include "platform/TimeConvert.h"
#include "protocol/MessageCodes.h"
#include "protocol/ResultCodes.h"
#include "protocol/TransferTypes.h"

namespace {

constexpr int kFirstStopWaitMs = 20;
constexpr std::size_t kLogTogetherBytes = 16 << 10;
constexpr int kStopStepMs = 50;
constexpr int kStopSteps = 101;

constexpr int kFrameSlackBytes = 128;  // room for the head behind the body's length
static_assert(kFrameSlackBytes >= kPackHeadBytes);

}  // namespace

CTransClient::CTransClient(ITransNet* pTransNet, unsigned int ip, int port)
    : m_nLinkIP(ip),
      m_nLinkPort(port),
      m_nLastDataError(RESULT_OK),
      m_nTransType(PROCESS_TYPE_NONE),
      m_pTransNet(pTransNet),
      m_pState(std::make_shared<SState>()) {
  auto netBuffer = std::make_unique<CNetBuffer>(0U, 0);
  auto lock = std::make_unique<CThreadLock>(true);
  auto transFile = std::make_unique<CKQFile>();
  auto logFile = std::make_unique<CKQFile>();
  auto logLock = std::make_unique<CThreadLock>(true);
  m_pNetBuffer = netBuffer.release();
  m_pLock = lock.release();
  m_pTransFile = transFile.release();
  m_pLogFile = logFile.release();
  m_pLogLock = logLock.release();
  m_llWriteErrTime = CTimeConvert::GetCurTime();
  m_llLogReopenTime = CTimeConvert::GetCurTime();
  m_llCreateTime = CTimeConvert::GetCurTime();
}

CTransClient::~CTransClient() {
  StopService();
  WaitSenders();
  m_pTransFile->Close();
  delete m_pTransFile;
  delete m_pNetBuffer;
  delete m_pLock;
  delete m_pLogFile;
  delete m_pLogLock;
}

bool CTransClient::DealNetMsg(unsigned int, int, int msgType, int nLength, const char* data, int) {
  if (nLength < 0) return true;
  try {
    if (!JoinsGroup(msgType, nLength, data)) ConfirmGroup();
    m_pState->m_group.Count(nLength);
    Dispatch(msgType, nLength, data);
  } catch (...) {
    // Out of memory for this one request: its client runs into its time-out.
  }
  try {
    const bool more = LayerThread().m_bMoreToCome;
    if (!more || m_pState->m_group.IsFull()) ConfirmGroup();
    if (!more) WriteLogLines();
  } catch (...) {
    // As above.
  }
  return true;
}

void CTransClient::Dispatch(int msgType, int nLength, const char* data) {
  if (msgType != NET_CTS_TRANSFILEDATA) m_pState->m_ahead.Forget();
  switch (msgType) {
    case NET_CTS_PREPARETRAN_FILE:
      return AnswerPrepareReceive(nLength, data);
    case NET_CTS_TRANSFILEDATA:
      return StoreFileData(nLength, data);
    case NET_CTS_TRANSFILEDATA_END:
      return AnswerEndOfFile();
    case NET_CTS_TRANS_STOP:
      return StopDownload();
    case NET_CTS_REQUEST_SERVERFILESIZE:
      return AnswerFilesSize(nLength, data);
    case NET_CTS_PREPARETRANS_FILE:
      return AnswerPrepareDown(nLength, data);
    case NET_CTS_GETLOSTINFO:
      return AnswerLostInfo(nLength, data);
    case NET_CTS_CHANGELOSTINFO:
      return AnswerUpdateLostInfo(nLength, data);
    case NET_CTS_GETPRJDIR:
      return AnswerProjectDir();
    case NET_CTS_GETPRJLIST:
      return AnswerProjectList();
    case NET_CTS_DELETEPRJ:
      return AnswerDeleteProject(nLength, data);
    case NET_CTS_GETPRJFILELIST:
      return AnswerProjectFileList(nLength, data);
    default:
      return;  // what only the server sends, or nobody
  }
}

void CTransClient::SetLog(const std::string& dir) {
  m_bLog = true;
  {
    const CScopedLock lock(m_pLogLock);
    m_strLogDir = dir;
  }
  CreateLogFile();
}

void CTransClient::CreateLogFile() {
  const std::string name =
      CNetWorkManageEx::TransIP(m_nLinkIP) + "_" + CTimeConvert::ConvertCurTimeToString();
  const CScopedLock lock(m_pLogLock);
  m_strLogFile = m_strLogDir + name;
  OpenLogFile(*m_pLogFile, m_strLogFile);
}

std::string CTransClient::LogFilePath() const {
  const CScopedLock lock(m_pLogLock);
  return m_strLogFile;
}

void CTransClient::WriteLog(const std::string& msg) {
  if (!m_bLog) return;
  {
    const CScopedLock lock(m_pLogLock);
    m_pState->m_strLogLines += LogLine(msg);
    const bool waits = m_pState->m_strLogLines.size() < kLogTogetherBytes;
    if (LayerThread().m_bMoreToCome && waits) return;
  }
  WriteLogLines();
}

// Those of packets that arrived together, in one call.
void CTransClient::WriteLogLines() {
  {
    const CScopedLock lock(m_pLogLock);
    if (m_pState->m_strLogLines.empty()) return;
  }
  if (IsLogFileFull(LogFilePath())) CreateLogFile();
  const CScopedLock lock(m_pLogLock);
  if (!m_pLogFile->IsOpen()) OpenLogFile(*m_pLogFile, m_strLogFile);
  ReopenLogFileIfDue(*m_pLogFile, m_strLogFile, m_llLogReopenTime);
  AppendLogLines(*m_pLogFile, std::exchange(m_pState->m_strLogLines, ""));
}

void CTransClient::Rest() {
  m_pTransFile->Close();
  m_pState->m_group.Clear();
  WriteLogLines();
  const CScopedLock lock(m_pLogLock);
  m_pLogFile->Close();
}

bool CTransClient::StopService() {
  m_bStopService = true;
  DismissSender();
  CKQPlatForm::KQSleep(kFirstStopWaitMs);
  bool ended = !m_bWriting;
  for (int step = 1; !ended && step <= kStopSteps; ++step) {
    CKQPlatForm::KQSleep(kStopStepMs);
    ended = step < kStopSteps && !m_bWriting;  // not looked at after the last step
  }
  m_nTransType = PROCESS_TYPE_NONE;
  return ended;
}

void CTransClient::WaitSenders() {
  {
    const std::lock_guard<std::mutex> lock(m_pState->m_runMutex);
    ++m_pState->m_nWaiters;
  }
  DismissSender();
  m_pState->m_senderGate.WaitEmpty();
  const std::lock_guard<std::mutex> lock(m_pState->m_runMutex);
  --m_pState->m_nWaiters;
}

// The epoch moves on before the flags are cleared: a sender of the old link
// that no longer finds the stop finds the new epoch.
void CTransClient::ResetForLink() {
  const std::lock_guard<std::mutex> lock(m_pState->m_runMutex);
  ++m_pState->m_ullLinkEpoch;
  m_pState->m_group.Clear();
  m_bStopTrans = false;
  m_bStopService = false;
  m_nTransType = PROCESS_TYPE_NONE;
}

int CTransClient::SendMsg(int msgType, const void* body, int nLength) {
  return SendFrame(m_nLinkPort, msgType, body, nLength);
}

int CTransClient::SendMsg(int msgType, const std::string& body) {
  if (body.size() > static_cast<std::size_t>(kMaxBodyBytes)) return 0;
  if (!m_pState->m_group.IsEmpty()) {
    m_pState->m_group.Hold(msgType, body);
    return 1;
  }
  return SendMsg(msgType, body.data(), static_cast<int>(body.size()));
}

int CTransClient::SendFrame(int port, int msgType, const void* body, int nLength) {
  if (m_pTransNet == nullptr || nLength < 0 || nLength > kMaxBodyBytes) return 0;
  const auto frame =
      std::make_unique_for_overwrite<char[]>(static_cast<std::size_t>(nLength) + kFrameSlackBytes);
  CNetWorkPackHead head;
  head.SetCode(static_cast<unsigned>(msgType));
  head.SetBodyLength(static_cast<unsigned>(nLength));
  head.CopyTo(frame.get());
  if (nLength > 0) {
    std::memcpy(frame.get() + kPackHeadBytes, body, static_cast<std::size_t>(nLength));
  }
  return m_pTransNet->SendText(m_nLinkIP, port, frame.get(), nLength + kPackHeadBytes) ? 1 : 0;
}
