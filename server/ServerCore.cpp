// Server core: listens, turns the network layer's events into work of the
// sessions, and gives the sessions their ways back.

#include "server/KQFileTransServiceServer.h"

#include <map>
#include <mutex>
#include <type_traits>
#include <utility>
#include <vector>

#include "net/LinkBinding.h"
#include "net/LinkEvents.h"
#include "net/NetBuffer.h"
#include "net/NetWorkManageEx.h"
#include "platform/KQFile.h"
#include "platform/KQPlatForm.h"
#include "platform/System.h"
#include "platform/ThreadLock.h"
#include "protocol/TransferTypes.h"
#include "session/TransClient.h"

// Hosts may copy servers; copies share what the pointers lead to.
static_assert(std::is_copy_constructible_v<CKQFileTransServiceServer>);
static_assert(std::is_copy_assignable_v<CKQFileTransServiceServer>);

namespace {

constexpr int kMostLinks = 100;
constexpr int kPassMs = 1;
constexpr int kMostPasses = 20;
constexpr int kKeepAliveIdleMs = 2000;
constexpr int kKeepAliveIntervalMs = 1000;

STransferFacts LinkFacts(unsigned int ip, int port) {
  STransferFacts facts;
  facts.m_nIP = ip;
  facts.m_nPort = port;
  return facts;
}

// A hook belongs to the host; what it throws must not end anything of ours.
template <typename Hook>
void Call(const Hook& hook) {
  try {
    hook();
  } catch (...) {
  }
}

const char kNoNetwork[] = " CKQFileTransServiceServer::SendText  m_pPrimaryNetWork = null";

}  // namespace

// What a server has beyond the members that hosts see. Copies of a server
// share it.
struct CKQFileTransServiceServer::SState {
  bool m_bDurable = false;         // constant while the network runs
  CSharedWord<int> m_nAsking = 0;  // messages that look for their session
  std::mutex m_endTurn;            // held while a link's end is handled

  std::mutex m_linkMutex;
  std::map<std::pair<unsigned int, int>, std::int64_t> m_mapLinks;  // guarded by m_linkMutex; since
};

CKQFileTransServiceServer::CKQFileTransServiceServer()
    : m_pClientLock(new CThreadLock(true)),
      m_pPrimaryNetWork(new CNetWorkManageEx),
      m_strPrjSuffix(".kqsln"),
      m_pLogFile(new CKQFile),
      m_pLogLock(new CThreadLock(true)),
      m_pState(std::make_shared<SState>()) {
  m_pPrimaryNetWork->SetKeepAlive(kKeepAliveIdleMs, kKeepAliveIntervalMs);
  m_pPrimaryNetWork->SetTransferType(0, true, 0);
  m_pPrimaryNetWork->SetRefusalListener([this](unsigned int ip, int port, ERefusal refusal) {
    Call([&] { OnRefused(LinkFacts(ip, port), refusal); });
  });
}

CKQFileTransServiceServer::~CKQFileTransServiceServer() {
  Stop();
  RemoveAllClient(true);
  delete m_pPrimaryNetWork;
  delete m_pClientLock;
  delete m_pLogFile;
  delete m_pLogLock;
}

bool CKQFileTransServiceServer::Init(int port) {
  if (m_pPrimaryNetWork == nullptr) return false;
  if (m_bInit && port == m_nPort) return true;
  if (m_bInit) {
    Stop();  // the sessions too: they were working for the other port
  } else {
    m_pPrimaryNetWork->Stop();
  }
  const bool ok = m_pPrimaryNetWork->Init(this, port, kMostLinks);
  m_nPort = port;
  m_bInit = ok;
  return ok;
}

// The lock is taken only once the network has stopped: its threads may hold
// or want it, and Stop waits for them.
void CKQFileTransServiceServer::Stop() {
  if (m_pPrimaryNetWork != nullptr) m_pPrimaryNetWork->Stop();
  m_bInit = false;
  EndTransfers();
  RemoveAllClient(false);
}

void CKQFileTransServiceServer::SetPrjDir(const std::string& dir) {
  m_strPrjDir = dir;
}

void CKQFileTransServiceServer::SetPrjSuffix(const std::string& suffix) {
  m_strPrjSuffix = suffix;
}

void CKQFileTransServiceServer::SetDurable(bool durable) {
  m_pState->m_bDurable = durable;
}

bool CKQFileTransServiceServer::DealNetMsg(unsigned int ip, int port, int code, int bodyLen,
                                           const char* body, int extra) {
  switch (code) {
    case NET_COMMAND_DISCONNECT:
      AnnounceLink("client disconnect:", ip, port);
      EndLink(ip, port);
      break;
    case NET_COMMAND_CONNECT:
      AnnounceLink("new client:", ip, port);
      AddClientManage(ip, port);
      NoteLink(ip, port);
      break;
    default: {
      m_pState->m_nAsking += 1;
      CTransClient* const session = GetClientManage(ip, port);
      m_pState->m_nAsking += -1;
      if (session == nullptr) break;
      // The session may have been given another link's port meanwhile.
      const CLinkBinding answers;
      // Outside the registry's lock: a long request delays its own link only.
      session->DealNetMsg(ip, port, code, bodyLen, body, extra);
    }
  }
  return true;
}

void CKQFileTransServiceServer::OnConnected(const STransferFacts&) {}

void CKQFileTransServiceServer::OnDisconnected(const STransferFacts&) {}

void CKQFileTransServiceServer::NoteLink(unsigned int ip, int port) {
  {
    const std::lock_guard<std::mutex> lock(m_pState->m_linkMutex);
    m_pState->m_mapLinks[{ip, port}] = System().SteadyMilliseconds();
  }
  Call([&] { OnConnected(LinkFacts(ip, port)); });
}

void CKQFileTransServiceServer::ForgetLink(unsigned int ip, int port) {
  STransferFacts facts = LinkFacts(ip, port);
  {
    const std::lock_guard<std::mutex> lock(m_pState->m_linkMutex);
    const auto link = m_pState->m_mapLinks.find({ip, port});
    if (link == m_pState->m_mapLinks.end()) return;
    facts.m_llMilliseconds = System().SteadyMilliseconds() - link->second;
    m_pState->m_mapLinks.erase(link);
  }
  Call([&] { OnDisconnected(facts); });
}

// The network has stopped, so nothing else works on the sessions, and no code
// 0 comes. Told before the waits: a program that cannot wait knows by then.
void CKQFileTransServiceServer::EndTransfers() {
  std::vector<CTransClient*> sessions;
  {
    const CScopedLock lock(m_pClientLock);
    for (const auto& [key, session] : m_mapClient) sessions.push_back(session);
  }
  for (CTransClient* session : sessions) session->TellCutOff();
  std::vector<std::pair<unsigned int, int>> links;
  {
    const std::lock_guard<std::mutex> lock(m_pState->m_linkMutex);
    for (const auto& [link, since] : m_pState->m_mapLinks) links.push_back(link);
  }
  for (const auto& [ip, port] : links) ForgetLink(ip, port);
}

// The registry is locked while a session is stopped, and the lock is not fair.
// Ends of links therefore come one at a time, and let the messages that wait
// pass before the next one, however many links end at once.
void CKQFileTransServiceServer::EndLink(unsigned int ip, int port) {
  TellEnd(ip, port);
  const std::lock_guard<std::mutex> turn(m_pState->m_endTurn);
  RemoveClientManage(ip, port);
  for (int i = 0; i < kMostPasses && (i == 0 || m_pState->m_nAsking > 0); ++i)
    CKQPlatForm::KQSleep(kPassMs);
}

// Before the wait for a turn, which may take long. A download that the link
// carried ends by itself, as a rule at once, and is to be told first.
void CKQFileTransServiceServer::TellEnd(unsigned int ip, int port) {
  if (CTransClient* const session = GetClientManage(ip, port)) {
    session->TellCutOff();
    // Others may go on with it; the session is stopped with patience.
    if (session->m_nTransType == PROCESS_TYPE_CLIENT_UPDATA) session->m_pTransFile->Close();
    for (int i = 0; i < kMostPasses && session->m_nTransType == PROCESS_TYPE_CLIENT_DOWNDATA; ++i)
      CKQPlatForm::KQSleep(kPassMs);
  }
  ForgetLink(ip, port);
}

// The blanks of the log entry are missing on standard output, kept on purpose.
void CKQFileTransServiceServer::AnnounceLink(const char* event, unsigned int ip, int port) {
  const std::string address = CNetWorkManageEx::TransIP(ip);
  const std::string number = std::to_string(port);
  System().WriteStandard(false, event + address + ":" + number + "\n");
  WriteLog(event + (" " + address) + " :" + number + " \n");
}

CNetBuffer* CKQFileTransServiceServer::CreateNetBuffer(unsigned int ip, int port, int, int) {
  CTransClient* const session = AddClientManage(ip, port);
  if (session == nullptr) return nullptr;
  CNetBuffer* const buffer = session->m_pNetBuffer;
  buffer->m_nLinkIP = ip;
  buffer->m_nLinkPort = port;
  buffer->ClearData();
  buffer->ShareMemory();
  buffer->m_pOwner = this;
  session->StopService();
  session->TellCutOff();
  session->m_pTransFile->Close();
  session->ResetForLink();
  return buffer;
}

ILinkInfo* CKQFileTransServiceServer::GetLinkInfo(unsigned int ip, int port) {
  return m_pPrimaryNetWork != nullptr ? m_pPrimaryNetWork->GetLinkInfo(ip, port) : nullptr;
}

bool CKQFileTransServiceServer::SendText(ILinkInfo* link, CIOCPBuffer* buf) {
  if (m_pPrimaryNetWork == nullptr) {
    WriteLog(kNoNetwork);
    return false;
  }
  return m_pPrimaryNetWork->DirectSendData(link, buf);
}

bool CKQFileTransServiceServer::SendText(unsigned int ip, int port, const char* data, int len) {
  if (m_pPrimaryNetWork == nullptr) {
    WriteLog(kNoNetwork);
    return false;
  }
  return m_pPrimaryNetWork->SendText(ip, port, data, len);
}

std::string CKQFileTransServiceServer::GetFileDir() {
  return m_strPrjDir;
}

std::string CKQFileTransServiceServer::GetPrjSuffix() {
  return m_strPrjSuffix;
}

bool CKQFileTransServiceServer::IsDurable() {
  return m_pState->m_bDurable;
}
