// Client session: the object, its connection, and requests.
//
// Connect finds the one link to the server and remembers it in m_pLinkInfo;
// everything that sends loads that word once and works on the local. The
// destructor quiesces network and worker before anything is destroyed.

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "client/ClientState.h"
#include "client/KQFileTransServiceClient.h"
#include "client/TransferRun.h"
#include "net/IOCPBuffer.h"
#include "net/LinkInfo.h"
#include "net/NetBuffer.h"
#include "net/NetWorkManageEx.h"
#include "net/NetWorkPackHead.h"
#include "platform/KQEvent.h"
#include "platform/KQFile.h"
#include "platform/ThreadLock.h"
#include "platform/TimeConvert.h"
#include "protocol/DataPacket.h"
#include "protocol/MessageCodes.h"
#include "protocol/ResultCodes.h"

namespace {

constexpr int kLinkCapacity = 100;
constexpr int kPoolBuffers = 64;
constexpr int kAnswerWaitMs = 10000;

}  // namespace

static_assert(std::is_copy_constructible_v<CKQFileTransServiceClient> &&
              std::is_copy_assignable_v<CKQFileTransServiceClient>);

CKQFileTransServiceClient::CKQFileTransServiceClient()
    : m_pNetWork(new CNetWorkManageEx), m_pState(std::make_shared<SState>()) {
  m_pNetWork->m_bConnectOnly = true;
  m_pNetWork->SetTransferType(0, false, 0);
  m_pNetBuffer = new CNetBuffer(0, 0);
  m_pNetBuffer->m_pOwner = this;
  m_pFile = new CKQFile;
  m_evTransEnd = new CKQEvent;
  m_evFileEnd = new CKQEvent;
  m_evReply = new CKQEvent;
  for (int i = 0; i < kPoolBuffers; ++i) {
    m_mapBuffer[new CIOCPBuffer(kSendBufferBytes, true, false, 0)] = true;
  }
  m_pLogFile = new CKQFile;
  m_pLock = new CThreadLock(true);
  m_llLogTime = CTimeConvert::GetCurTime();
}

// A worker waits for an event only after a message went out, so after the
// network has stopped one signal each is enough to wake it for good.
void CKQFileTransServiceClient::EndWorker() {
  m_bStop = true;
  m_pNetWork->Stop();
  m_pLinkInfo = nullptr;
  m_evTransEnd->SetKQEvent();
  m_evFileEnd->SetKQEvent();
  m_evReply->SetKQEvent();
  m_pState->m_gate.WaitEmpty();
}

CKQFileTransServiceClient::~CKQFileTransServiceClient() {
  EndWorker();
  delete m_pNetWork;
  delete m_pNetBuffer;
  delete m_pFile;
  delete m_evTransEnd;
  delete m_evFileEnd;
  delete m_evReply;
  for (auto& [buffer, isFree] : m_mapBuffer) {
    if (isFree) delete buffer;  // what is taken was the network's to destroy
  }
  m_mapBuffer.clear();
  delete m_pLogFile;
  delete m_pLock;
}

bool CKQFileTransServiceClient::Init(std::string strLogDir) {
  {
    const CScopedLock lock(m_pLock);
    m_strLogDir = std::move(strLogDir);
  }
  CreateLogFile();
  if (m_bInit) return true;
  m_bInit = m_pNetWork->Init(this, 0, kLinkCapacity);
  return m_bInit;
}

bool CKQFileTransServiceClient::Connect(std::string strIP, int nPort) {
  if (strIP != GuardedCopy(m_strServerIP) || nPort != m_nServerPort) {
    m_pNetWork->CloseAllConnect();
    m_bConnect = false;
    m_pLinkInfo = nullptr;
  }
  if (m_bConnect) return true;

  {
    const CScopedLock lock(m_pLock);
    m_strServerIP = std::move(strIP);
  }
  m_nServerPort = nPort;
  m_bConnect = m_pNetWork->ConnectToHost(GuardedCopy(m_strServerIP), nPort);
  if (!m_bConnect) return false;
  ILinkInfo* found = nullptr;
  for (ILinkInfo* link : m_pNetWork->GetAllLinkInfo()) {
    if (!link->IsLink()) continue;
    found = link;
    break;
  }
  if (found != nullptr) m_pLinkInfo = found;
  // The new link may be gone again, and its end reported before we stored it;
  // while it is up, its end is still to come and will clear both words.
  if (found == nullptr || !found->IsLink()) {
    m_bConnect = false;
    m_pLinkInfo = nullptr;
  }
  return m_bConnect;
}

void CKQFileTransServiceClient::Stop() {
  m_pNetWork->Stop();
  m_bPrjDirKnown = false;
  m_bInit = false;
  m_bConnect = false;
  m_pLinkInfo = nullptr;
}

bool CKQFileTransServiceClient::IsConnect() const {
  return m_bConnect;
}

CNetBuffer* CKQFileTransServiceClient::CreateNetBuffer(unsigned int ip, int port, int, int) {
  m_pNetBuffer->m_nLinkIP = ip;
  m_pNetBuffer->m_nLinkPort = port;
  m_pNetBuffer->ClearData();
  return m_pNetBuffer;
}

bool CKQFileTransServiceClient::SendMessage(int nMsgType, const char* pData, int nLength) {
  ILinkInfo* const link = m_pLinkInfo;
  if (link == nullptr || !link->IsLink()) return false;
  if (nLength < 0 || nLength > kMaxBodyBytes) return false;

  CNetWorkPackHead head;
  head.SetCode(static_cast<unsigned>(nMsgType));
  head.SetBodyLength(static_cast<unsigned>(nLength));
  std::unique_ptr<CIOCPBuffer> buffer;
  try {
    buffer = std::make_unique<CIOCPBuffer>(nLength + kPackHeadBytes, true, false, 0);
  } catch (const std::bad_alloc&) {
    return false;
  }
  head.CopyTo(buffer->m_pBuf);
  if (nLength > 0) {
    std::memcpy(buffer->m_pBuf + kPackHeadBytes, pData, static_cast<std::size_t>(nLength));
  }
  buffer->m_nDataLen = nLength + kPackHeadBytes;
  if (nMsgType == NET_CTS_PREPARETRANS_FILE) {  // another file: nothing of it is lost yet
    m_pState->m_bWriteFailed = false;
    m_pState->m_llLostPos = INT64_MAX;
  }
  return m_pNetWork->DirectSendData(link, buffer.release());
}

bool CKQFileTransServiceClient::SendText(int code, const std::string& body) {
  if (body.size() > static_cast<std::size_t>(kMaxBodyBytes)) return false;
  return SendMessage(code, body.data(), static_cast<int>(body.size()));
}

int CKQFileTransServiceClient::SendAndWaitPre(int nMsgType, const char* pData, int nLength) {
  m_evReply->ResetKQEvent();
  if (!SendMessage(nMsgType, pData, nLength)) return ERROR_CODE_CLIENT_SENDCMD;
  if (!AwaitReply(kAnswerWaitMs)) return ERROR_CODE_WAIT_SERVERRESPOND;
  return m_nErrorCode;
}

// Data that comes before the answer may take the limit long.
bool CKQFileTransServiceClient::AwaitReply(int ms) {
  for (std::int64_t heard = m_pNetWork->BytesReceived(); !m_pState->Await(*this, *m_evReply, ms);) {
    const std::int64_t before = std::exchange(heard, m_pNetWork->BytesReceived());
    const bool limited = m_pState->m_pRateLimit != nullptr;
    if (!limited || heard == before || m_pState->IsToEnd(*this)) return false;
  }
  return true;
}

// An answer that comes at once is still taken after a stop.
bool CKQFileTransServiceClient::SState::Await(const CKQFileTransServiceClient& client,
                                              CKQEvent& event, int ms) const {
  const int step = m_bPrompt ? kPromptLookMs : ms;
  for (; ms > 0; ms -= step) {
    if (event.Wait(std::min(step, ms)) != kWaitTimeout) return true;
    if (IsToEnd(client)) return false;
  }
  return false;
}

// The stop is of the worker's transfer only while that runs.
bool CKQFileTransServiceClient::SState::IsToEnd(const CKQFileTransServiceClient& client) const {
  return m_bPrompt && client.m_bStop && CTransferRun::OfThread() != nullptr;
}

std::string CKQFileTransServiceClient::GuardedCopy(const std::string& member) const {
  const CScopedLock lock(m_pLock);
  return member;
}
