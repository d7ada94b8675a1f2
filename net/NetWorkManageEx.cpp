// The network layer's face: keeps the set-up and what outlives one run of the
// layer, and hands everything else to the run.

#include "net/NetWorkManageEx.h"

#include <algorithm>
#include <mutex>
#include <utility>

#include "net/AddressText.h"
#include "net/DealNetData.h"
#include "net/IOCPBuffer.h"
#include "net/Link.h"
#include "net/NetWorkCore.h"
#include "net/Sockets.h"

struct CNetWorkManageEx::SState {
  SNetWorkSettings m_settings;  // set before Init
  const std::shared_ptr<CLinkShells> m_pShells = std::make_shared<CLinkShells>();

  std::mutex m_mutex;
  std::shared_ptr<CNetWorkCore> m_pCore;  // guarded by m_mutex; null when not running
  // Stopped from inside a callback, whose thread has still to end.
  std::vector<std::shared_ptr<CNetWorkCore>> m_vecEnding;  // guarded by m_mutex
  std::vector<CIOCPBuffer*> m_vecParked;  // guarded by m_mutex; handed in while not running
};

CNetWorkManageEx::CNetWorkManageEx() : m_pState(std::make_unique<SState>()) {}

CNetWorkManageEx::~CNetWorkManageEx() {
  Stop();
  for (CIOCPBuffer* buffer : m_pState->m_vecParked) delete buffer;
}

void CNetWorkManageEx::SetKeepAlive(int idleMs, int intervalMs) {
  m_pState->m_settings.m_bKeepAlive = true;
  m_pState->m_settings.m_nKeepAliveIdleMs = idleMs;
  m_pState->m_settings.m_nKeepAliveIntervalMs = intervalMs;
}

bool CNetWorkManageEx::SetTransferType(int, bool, int) {
  return true;
}

void CNetWorkManageEx::SetLocalAddress(const std::string& address) {
  m_pState->m_settings.m_strLocalAddress = address;
}

void CNetWorkManageEx::SetAllowedPeers(std::vector<CAddressRange> ranges) {
  m_pState->m_settings.m_vecAllowed = std::move(ranges);
}

void CNetWorkManageEx::SetLinkLimits(const SLinkLimits& limits) {
  m_pState->m_settings.m_limits = limits;
}

void CNetWorkManageEx::SetRefusalListener(
    std::function<void(unsigned int, int, ERefusal)> listener) {
  m_pState->m_settings.m_refused = std::move(listener);
}

void CNetWorkManageEx::SetConnectTimeout(int ms) {
  m_pState->m_settings.m_nConnectTimeoutMs = ms;
}

void CNetWorkManageEx::JudgeFirstBytes() {
  m_pState->m_settings.m_bJudgeFirstBytes = true;
}

void CNetWorkManageEx::SetRateLimit(IRateLimit* limit) {
  m_pState->m_settings.m_pRateLimit = limit;
}

std::shared_ptr<CNetWorkCore> CNetWorkManageEx::Core() const {
  const std::lock_guard<std::mutex> guard(m_pState->m_mutex);
  return m_pState->m_pCore;
}

bool CNetWorkManageEx::Init(IDealNetData* sink, int port, int capacity) {
  if (sink == nullptr || Core() != nullptr) return false;
  m_pState->m_settings.m_nCapacity = capacity;
  const auto core =
      std::make_shared<CNetWorkCore>(*sink, m_pState->m_settings, m_pState->m_pShells);
  {
    // Entered before the first callback, which may already want to send.
    const std::lock_guard<std::mutex> guard(m_pState->m_mutex);
    m_pState->m_pCore = core;
  }
  const bool started = core->Start(!m_bConnectOnly, port);
  const std::lock_guard<std::mutex> guard(m_pState->m_mutex);
  if (!started) {
    if (m_pState->m_pCore == core) m_pState->m_pCore.reset();
    return false;
  }
  for (CIOCPBuffer*& buffer : m_pState->m_vecParked) {
    if (core->GiveBack(buffer)) buffer = nullptr;
  }
  std::erase(m_pState->m_vecParked, nullptr);
  return true;
}

int CNetWorkManageEx::GetListenPort() const {
  const std::shared_ptr<CNetWorkCore> core = Core();
  return core != nullptr ? core->ListenPort() : 0;
}

bool CNetWorkManageEx::ConnectToHost(const std::string& host, int port) {
  const std::shared_ptr<CNetWorkCore> core = Core();
  return core != nullptr && core->Connect(host, port);
}

ELinkFailure CNetWorkManageEx::WhyNoLink() const {
  const std::shared_ptr<CNetWorkCore> core = Core();
  return core != nullptr ? core->Why() : ELinkFailure::kNone;
}

std::int64_t CNetWorkManageEx::BytesReceived() const {
  const std::shared_ptr<CNetWorkCore> core = Core();
  return core != nullptr ? core->Received() : 0;
}

std::vector<ILinkInfo*> CNetWorkManageEx::GetAllLinkInfo() const {
  const std::shared_ptr<CNetWorkCore> core = Core();
  return core != nullptr ? core->LiveLinks() : std::vector<ILinkInfo*>();
}

ILinkInfo* CNetWorkManageEx::GetLinkInfo(unsigned int ip, int port) const {
  const std::shared_ptr<CNetWorkCore> core = Core();
  return core != nullptr ? core->LinkInfo(ip, port) : nullptr;
}

bool CNetWorkManageEx::DirectSendData(ILinkInfo* link, CIOCPBuffer* buf) {
  if (buf == nullptr) return false;
  const std::shared_ptr<CNetWorkCore> core = Core();
  const auto* shell = dynamic_cast<CLinkShell*>(link);
  const bool wellFormed = buf->m_nDataLen > 0 && buf->m_nDataLen <= buf->m_nBufSize;
  if (core != nullptr && shell != nullptr && wellFormed) {
    const std::shared_ptr<CLink> connection = shell->Link();
    if (connection != nullptr) {
      const CSendQueue::EPush result = connection->Queue().PushBuffer(buf);
      if (result != CSendQueue::EPush::kRefused) return result == CSendQueue::EPush::kTaken;
    }
  }
  if (core == nullptr || !core->GiveBack(buf)) {
    const std::lock_guard<std::mutex> guard(m_pState->m_mutex);
    m_pState->m_vecParked.push_back(buf);
  }
  return false;
}

bool CNetWorkManageEx::SendText(unsigned int ip, int port, const char* data, int len) {
  const std::shared_ptr<CNetWorkCore> core = Core();
  if (core == nullptr || data == nullptr || len <= 0) return false;
  return core->SendText(ip, port, data, static_cast<std::size_t>(len));
}

bool CNetWorkManageEx::CloseAllConnect() {
  const std::shared_ptr<CNetWorkCore> core = Core();
  if (core != nullptr) core->CloseAll();
  return true;
}

void CNetWorkManageEx::Stop() {
  std::vector<std::shared_ptr<CNetWorkCore>> ending;
  {
    const std::lock_guard<std::mutex> guard(m_pState->m_mutex);
    if (m_pState->m_pCore != nullptr) {
      m_pState->m_vecEnding.push_back(std::move(m_pState->m_pCore));
      m_pState->m_pCore = nullptr;
    }
    ending = m_pState->m_vecEnding;
  }
  for (const auto& core : ending) core->Stop();
  const std::lock_guard<std::mutex> guard(m_pState->m_mutex);
  std::erase_if(m_pState->m_vecEnding, [](const auto& core) { return core->HasEnded(); });
}

std::string CNetWorkManageEx::TransIP(unsigned int ip) {
  return AddressText(ip);
}

std::vector<std::string> CNetWorkManageEx::AddressesOf(const std::string& host) {
  std::vector<std::string> addresses = Sockets().AddressesOf(host);
  std::sort(addresses.begin(), addresses.end());
  addresses.erase(std::unique(addresses.begin(), addresses.end()), addresses.end());
  return addresses;
}
