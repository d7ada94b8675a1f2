// One run of the network layer: its links, its threads and their end.

#include "net/NetWorkCore.h"

#include <algorithm>
#include <atomic>
#include <utility>

#include "net/AddressLane.h"
#include "net/DealNetData.h"
#include "net/IOCPBuffer.h"
#include "net/LayerThread.h"
#include "net/Link.h"
#include "net/LinkBinding.h"
#include "net/RateLimit.h"
#include "net/Sockets.h"
#include "platform/System.h"

namespace {

constexpr int kKeepAliveProbes = 5;

// What a limited link may receive ahead, an eighth of a second's within these.
constexpr int kLeastReceiveBuffer = 16 << 10;
constexpr int kMostReceiveBuffer = 4 << 20;

std::uint64_t NextSerial() {
  static std::atomic<std::uint64_t> last{0};
  return ++last;
}

}  // namespace

// A thread of the layer. The list of them is what Stop and CloseAll wait for.
struct CNetWorkCore::SThread {
  CNetWorkCore* m_pCore;
  std::shared_ptr<CLink> m_pLink;  // null for the threads that serve no link
  bool m_bDelivers;                // holds its link's lane during callbacks
  bool m_bWaiting = false;         // guarded by m_mutex; inside Stop or CloseAll

  static thread_local SThread* t_pThis;
};

thread_local CNetWorkCore::SThread* CNetWorkCore::SThread::t_pThis = nullptr;

CNetWorkCore::CNetWorkCore(IDealNetData& sink, const SNetWorkSettings& settings,
                           std::shared_ptr<CLinkShells> shells)
    : m_sink(sink),
      m_settings(settings),
      m_newLinks(settings.m_limits.m_nNew, settings.m_limits.m_nNewMs),
      m_pShells(std::move(shells)),
      m_pConnectWake(Sockets().MakeWake()) {}

CNetWorkCore::~CNetWorkCore() {
  for (CIOCPBuffer* buffer : m_vecGiveBack) delete buffer;  // only when no thread could be had
}

bool CNetWorkCore::Start(bool listen, int port) {
  if (listen) {
    m_pListener = Sockets().Listen(m_settings.m_strLocalAddress, port);
    if (m_pListener == nullptr) return false;
    m_bListens = true;
  }
  if (StartThread(nullptr, false, [this] { GiveBackLoop(); }) &&
      (!listen || StartThread(nullptr, false, [this] { AcceptLoop(); }))) {
    return true;
  }
  Stop();
  return false;
}

int CNetWorkCore::ListenPort() const {
  const std::lock_guard<std::mutex> guard(m_mutex);
  return m_pListener != nullptr ? m_pListener->Port() : 0;
}

// Runs `body` on a thread that Stop waits for and that keeps the core alive.
bool CNetWorkCore::StartThread(std::shared_ptr<CLink> link, bool delivers,
                               std::function<void()> body) {
  std::list<SThread>::iterator self;
  {
    const std::lock_guard<std::mutex> guard(m_mutex);
    self = m_threads.insert(m_threads.end(), SThread{this, std::move(link), delivers});
  }
  const auto leave = [core = shared_from_this(), self] {
    const std::lock_guard<std::mutex> guard(core->m_mutex);
    core->m_threads.erase(self);
    core->m_changed.notify_all();
  };
  const ESystemError error = System().StartThread([self, leave, run = std::move(body)] {
    LayerThread().m_bOfLayer = true;
    if (self->m_bDelivers) LayerThread().m_pDelivers = self->m_pLink.get();
    SThread::t_pThis = &*self;
    run();
    SThread::t_pThis = nullptr;
    leave();
  });
  if (error != ESystemError::kNone) leave();
  return error == ESystemError::kNone;
}

// Enters a connection and starts its delivery thread, which starts the sender.
// Returns null when it could not.
std::shared_ptr<CLink> CNetWorkCore::AddLink(std::unique_ptr<IStreamSocket> socket) {
  if (m_settings.m_bKeepAlive) {
    socket->SetKeepAlive(m_settings.m_nKeepAliveIdleMs, m_settings.m_nKeepAliveIntervalMs,
                         kKeepAliveProbes);
  }
  if (const int rate = m_settings.m_pRateLimit != nullptr ? m_settings.m_pRateLimit->Rate() : 0;
      rate > 0) {
    socket->SetReceiveBuffer(std::clamp(rate / 8, kLeastReceiveBuffer, kMostReceiveBuffer));
  }
  std::shared_ptr<CLink> older;
  std::shared_ptr<CLink> link = RegisterLink(std::move(socket), older);
  if (link == nullptr) return nullptr;
  // The order of set-ups is the order of accepting, unless an older link with
  // the same address and port has still to be announced gone.
  const bool hasTurn = older == nullptr;
  const std::uint64_t turn = hasTurn ? link->Lane()->TakeTurn() : 0;
  const auto body = [this, &self = *link, older, turn]() mutable {
    RunLink(self, std::move(older), turn);
  };
  if (StartThread(link, true, body)) return link;
  if (hasTurn) link->Lane()->Abandon(turn);
  link->MarkDown();
  RemoveLink(*link);
  return nullptr;
}

std::shared_ptr<CLink> CNetWorkCore::RegisterLink(std::unique_ptr<IStreamSocket> socket,
                                                  std::shared_ptr<CLink>& older) {
  const std::lock_guard<std::mutex> guard(m_mutex);
  if (m_bStopping) return nullptr;  // Stop has already seen every link there is
  std::shared_ptr<CAddressLane>& lane = m_lanes[socket->RemoteIP()];
  if (lane == nullptr) lane = std::make_shared<CAddressLane>();
  auto link = std::make_shared<CLink>(*this, std::move(socket), NextSerial(), lane);
  for (const SEntry& entry : m_links) {
    if (entry.m_pLink->IP() == link->IP() && entry.m_pLink->Port() == link->Port()) {
      older = entry.m_pLink;
    }
  }
  m_nLive += 1;
  m_links.push_back({link, nullptr, false});
  return link;
}

// Body of a link's delivery thread, whose entry in m_threads keeps the link.
void CNetWorkCore::RunLink(CLink& link, std::shared_ptr<CLink> older, std::uint64_t turn) {
  if (older != nullptr) {
    older->MarkDown();
    Lock lock(m_mutex);
    m_changed.wait(lock, [&] { return m_bStopping || !HasLink(*older); });
    older.reset();
    turn = link.Lane()->TakeTurn();
  }
  const auto send = [&link] { link.Queue().Run(); };
  const bool sending = StartThread(link.shared_from_this(), false, send);
  if (!sending) link.MarkDown();
  link.Deliver(turn);
  if (!sending) send();  // closed: it only gives back
  RemoveLink(link);
}

bool CNetWorkCore::HasLink(const CLink& link) const {
  return std::any_of(m_links.begin(), m_links.end(),
                     [&](const SEntry& entry) { return entry.m_pLink.get() == &link; });
}

void CNetWorkCore::RemoveLink(const CLink& link) {
  const std::lock_guard<std::mutex> guard(m_mutex);
  const auto found = std::find_if(m_links.begin(), m_links.end(), [&](const SEntry& entry) {
    return entry.m_pLink.get() == &link;
  });
  if (found->m_pShell != nullptr) found->m_pShell->Release();
  m_links.erase(found);
  const unsigned int ip = link.IP();
  if (std::none_of(m_links.begin(), m_links.end(),
                   [&](const SEntry& entry) { return entry.m_pLink->IP() == ip; })) {
    m_lanes.erase(ip);
  }
  m_changed.notify_all();
}

void CNetWorkCore::NoteSetUp(const CLink& link) {
  const std::lock_guard<std::mutex> guard(m_mutex);
  for (SEntry& entry : m_links) {
    if (entry.m_pLink.get() == &link) entry.m_bSetUp = true;
  }
  m_changed.notify_all();
}

void CNetWorkCore::NoteReceived(std::size_t bytes) {
  m_llReceived += static_cast<std::int64_t>(bytes);
  if (m_settings.m_pRateLimit != nullptr) m_settings.m_pRateLimit->Moved(bytes);
}

bool CNetWorkCore::Connect(const std::string& host, int port) {
  if (m_bStopping) return false;
  WaitThreads(
      [](const SThread& thread) { return thread.m_pLink != nullptr && !thread.m_pLink->IsUp(); });
  m_eWhy = ELinkFailure::kOther;
  if (m_bStopping || m_nLive >= m_settings.m_nCapacity) return false;
  ELinkFailure why = ELinkFailure::kOther;
  std::unique_ptr<IStreamSocket> socket =
      Sockets().Connect(host, port, m_settings.m_strLocalAddress, m_settings.m_nConnectTimeoutMs,
                        *m_pConnectWake, why);
  m_eWhy = socket == nullptr ? why : ELinkFailure::kNone;
  if (socket == nullptr) return false;
  const std::shared_ptr<CLink> link = AddLink(std::move(socket));
  if (link == nullptr) return false;
  if (!LayerThread().m_bOfLayer) {  // a callback may hold the lane that the set-up needs
    Lock lock(m_mutex);
    m_changed.wait(lock, [&] {
      return std::none_of(m_links.begin(), m_links.end(), [&](const SEntry& entry) {
        return entry.m_pLink == link && !entry.m_bSetUp;
      });
    });
  }
  return link->IsUp();
}

// A shell outlives its link, so that only links that someone asks for get one:
// the many short visits of a server's life leave nothing behind.
std::vector<ILinkInfo*> CNetWorkCore::LiveLinks() {
  std::vector<ILinkInfo*> live;
  const std::lock_guard<std::mutex> guard(m_mutex);
  for (SEntry& entry : m_links) {
    if (entry.m_pLink->IsUp()) live.push_back(Shell(entry));
  }
  return live;
}

// Called under m_mutex.
ILinkInfo* CNetWorkCore::Shell(SEntry& entry) {
  if (entry.m_pShell == nullptr) entry.m_pShell = m_pShells->Add(entry.m_pLink);
  return entry.m_pShell;
}

ILinkInfo* CNetWorkCore::LinkInfo(unsigned int ip, int port) {
  const std::shared_ptr<CLink> link = Target(ip, port);
  const std::lock_guard<std::mutex> guard(m_mutex);
  for (SEntry& entry : m_links) {
    if (entry.m_pLink == link) return Shell(entry);
  }
  return nullptr;
}

// A link has the address and port of an earlier one when its client used the
// same port again, and the earlier one's callback may still be running: what
// that sends is not meant for the new one. Nor is anything else before the new
// one has a parser.
std::shared_ptr<CLink> CNetWorkCore::Target(unsigned int ip, int port) const {
  std::shared_ptr<CLink> link;
  if (CLinkBinding::Find(ip, link)) return link;
  const auto isNamed = [&](const CLink& each) { return each.IP() == ip && each.Port() == port; };
  const SThread* const own = SThread::t_pThis;
  if (own != nullptr && own->m_pCore == this && own->m_bDelivers && isNamed(*own->m_pLink)) {
    return own->m_pLink;
  }
  const std::lock_guard<std::mutex> guard(m_mutex);
  for (const SEntry& entry : m_links) {
    const CLink& each = *entry.m_pLink;
    if (each.IsUp() && each.IsServed() && isNamed(each)) link = entry.m_pLink;
  }
  return link;
}

bool CNetWorkCore::SendText(unsigned int ip, int port, const char* data, std::size_t bytes) {
  const std::shared_ptr<CLink> link = Target(ip, port);
  return link != nullptr && link->Queue().PushText(data, bytes) == CSendQueue::EPush::kTaken;
}

bool CNetWorkCore::GiveBack(CIOCPBuffer* buffer) {
  const std::lock_guard<std::mutex> guard(m_mutex);
  if (m_bGiveBackEnded) return false;
  m_vecGiveBack.push_back(buffer);
  m_giveBack.notify_one();
  return true;
}

void CNetWorkCore::GiveBackLoop() {
  Lock lock(m_mutex);
  while (!m_bStopping || !m_vecGiveBack.empty()) {
    m_giveBack.wait(lock, [this] { return m_bStopping || !m_vecGiveBack.empty(); });
    std::vector<CIOCPBuffer*> buffers;
    buffers.swap(m_vecGiveBack);
    lock.unlock();
    for (CIOCPBuffer* buffer : buffers) {
      try {
        m_sink.ReleaseIOCPBuffer(buffer);
      } catch (...) {  // a host's override must not end the layer
      }
    }
    lock.lock();
  }
  m_bGiveBackEnded = true;
}

// Waits until no thread that `concerns` names is left. A thread of the layer
// does not wait for itself, nor for another one that waits here, nor for those
// whose callbacks cannot run before its own has returned.
void CNetWorkCore::WaitThreads(const std::function<bool(const SThread&)>& concerns) {
  SThread* const own = SThread::t_pThis;
  const bool inside = own != nullptr && own->m_pCore == this;
  const CAddressLane* const held =
      inside && own->m_bDelivers && !m_bStopping ? own->m_pLink->Lane().get() : nullptr;
  Lock lock(m_mutex);
  if (inside) own->m_bWaiting = true;
  m_changed.notify_all();
  m_changed.wait(lock, [&] {
    return std::none_of(m_threads.begin(), m_threads.end(), [&](const SThread& thread) {
      const bool blockedByOwn =
          held != nullptr && thread.m_bDelivers && thread.m_pLink->Lane().get() == held;
      const bool waitsToo = inside && thread.m_bWaiting;
      return &thread != own && !waitsToo && !blockedByOwn && concerns(thread);
    });
  });
  if (inside) own->m_bWaiting = false;
}

void CNetWorkCore::CloseAll() {
  std::vector<std::shared_ptr<CLink>> links;
  {
    const std::lock_guard<std::mutex> guard(m_mutex);
    for (const SEntry& entry : m_links) links.push_back(entry.m_pLink);
  }
  for (const auto& link : links) link->MarkDown();
  WaitThreads([&](const SThread& thread) {
    return std::any_of(links.begin(), links.end(),
                       [&](const auto& link) { return link == thread.m_pLink; });
  });
}

void CNetWorkCore::Stop() {
  std::vector<std::shared_ptr<CLink>> links;
  {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_bStopping = true;
    for (const auto& [ip, lane] : m_lanes) lane->Abort();
    for (const SEntry& entry : m_links) links.push_back(entry.m_pLink);
    m_giveBack.notify_all();
    if (m_pListener != nullptr) m_pListener->Stop();
  }
  m_pConnectWake->Wake();
  for (const auto& link : links) link->MarkDown();
  links.clear();
  WaitThreads([](const SThread&) { return true; });
  const std::lock_guard<std::mutex> guard(m_mutex);
  m_pListener.reset();  // frees the port
}

bool CNetWorkCore::HasEnded() const {
  const std::lock_guard<std::mutex> guard(m_mutex);
  return m_threads.empty();
}
