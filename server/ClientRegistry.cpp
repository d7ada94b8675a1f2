// Client registry: which session serves which link.
//
// A client that comes back from its address with a new port gets its earlier
// session again. Every operation holds m_pClientLock throughout, also while it
// waits for a write in progress: kept on purpose, others wait as long.

#include <exception>
#include <memory>
#include <utility>

#include "net/LinkInfo.h"
#include "net/NetBuffer.h"
#include "platform/ThreadLock.h"
#include "server/KQFileTransServiceServer.h"
#include "session/TransClient.h"

namespace {

constexpr unsigned kPortShift = 32;

std::uint64_t LinkKey(unsigned int ip, int port) {
  return static_cast<std::uint64_t>(static_cast<std::uint32_t>(port)) << kPortShift | ip;
}

unsigned int AddressOf(std::uint64_t key) {
  return static_cast<unsigned int>(key & 0xffffffffU);
}

int PortOf(std::uint64_t key) {
  return static_cast<int>(static_cast<std::uint32_t>(key >> kPortShift));
}

// The destructor is not virtual and nothing derived is ever owned here; the
// qualified call tells the compiler so.
struct SEndSession {
  void operator()(CTransClient* session) const {
    session->CTransClient::~CTransClient();
    ::operator delete(session);
  }
};
using OwnedSession = std::unique_ptr<CTransClient, SEndSession>;

}  // namespace

CTransClient* CKQFileTransServiceServer::AddClientManage(unsigned int ip, int port) {
  const CScopedLock lock(m_pClientLock);
  const auto known = m_mapClient.find(LinkKey(ip, port));
  if (known != m_mapClient.end()) {
    known->second->m_nLinkPort = port;
    return known->second;
  }
  CTransClient* const session = TakeOver(ip, port);
  return session != nullptr ? session : MakeSession(ip, port);
}

// Gives the link the first session of its address, if there is one. Only the
// key changes; the session keeps its log and state.
CTransClient* CKQFileTransServiceServer::TakeOver(unsigned int ip, int port) {
  for (auto entry = m_mapClient.begin(); entry != m_mapClient.end(); ++entry) {
    CTransClient* const session = entry->second;
    if (AddressOf(entry->first) != ip || session->m_bInUse) continue;
    auto node = m_mapClient.extract(entry);
    node.key() = LinkKey(ip, port);
    m_mapClient.insert(std::move(node));
    session->m_nLinkPort = port;
    return session;
  }
  return nullptr;
}

// Without memory for it nothing is added, and the link is refused.
CTransClient* CKQFileTransServiceServer::MakeSession(unsigned int ip, int port) {
  try {
    OwnedSession session(new CTransClient(this, ip, port));
    session->SetLog(LogDirectory());
    m_mapClient[LinkKey(ip, port)] = session.get();
    return session.release();
  } catch (const std::exception&) {
    return nullptr;
  }
}

CTransClient* CKQFileTransServiceServer::GetClientManage(unsigned int ip, int port) {
  const CScopedLock lock(m_pClientLock);
  const auto entry = m_mapClient.find(LinkKey(ip, port));
  return entry == m_mapClient.end() ? nullptr : entry->second;
}

void CKQFileTransServiceServer::RemoveClientManage(unsigned int ip, int port) {
  const CScopedLock lock(m_pClientLock);
  const auto entry = m_mapClient.find(LinkKey(ip, port));
  if (entry != m_mapClient.end()) Quiesce(entry->first, *entry->second);
}

// What a live link has begun to send is left in its parser: the rest of it
// would be taken for the beginning of a packet.
void CKQFileTransServiceServer::Quiesce(std::uint64_t key, CTransClient& session) {
  session.StopService();
  session.Rest();
  ILinkInfo* const link = GetLinkInfo(AddressOf(key), PortOf(key));
  if (link == nullptr || !link->IsLink()) session.m_pNetBuffer->ClearData();
}

void CKQFileTransServiceServer::RemoveAllClient(bool bDelete) {
  const CScopedLock lock(m_pClientLock);
  for (const auto& [key, session] : m_mapClient) {
    Quiesce(key, *session);
    session->WaitSenders();
    if (bDelete) const OwnedSession ended(session);
  }
  if (bDelete) m_mapClient.clear();
}
