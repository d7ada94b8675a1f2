// Clients' sockets that follow a plan: real ones that carry what it allows.

#include "support/TestSockets.h"

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

#include "platform/SharedWord.h"

struct CScopedSockets::SState {
  std::mutex m_mutex;  // guards what follows
  SLinkPlan m_plan;
  bool m_bArmed = false;  // the next connection is the first under the plan
  bool m_bEnded = false;
  std::string m_carried[2];
};

class CScopedSockets::CPlannedSocket final : public IStreamSocket {
 public:
  CPlannedSocket(std::shared_ptr<SState> state, std::unique_ptr<IStreamSocket> socket)
      : m_pState(std::move(state)), m_pSocket(std::move(socket)) {
    const std::lock_guard lock(m_pState->m_mutex);
    m_plan = m_pState->m_plan;
    m_bFirst = std::exchange(m_pState->m_bArmed, false);
  }

  EIoResult Receive(char* data, std::size_t size, std::size_t& received) override {
    Linger(m_plan.m_nLingerMs);
    const std::size_t granted = Granted(EDirection::kReceived, size);
    if (granted == 0) {
      if (End() == EIoResult::kWouldBlock) {
        while (m_pSocket->Receive(data, size, received) == EIoResult::kDone) continue;
      }
      return EIoResult::kClosed;
    }
    const EIoResult result = m_pSocket->Receive(data, granted, received);
    if (result == EIoResult::kDone) Carry(EDirection::kReceived, data, received);
    return result;
  }
  EIoResult Send(const SSlice* slices, int, std::size_t& sent) override {
    const SSlice granted{slices->m_pData, Granted(EDirection::kSent, slices->m_nBytes)};
    if (granted.m_nBytes == 0) return End();
    const EIoResult result = m_pSocket->Send(&granted, 1, sent);
    if (result == EIoResult::kDone) Carry(EDirection::kSent, granted.m_pData, sent);
    return result;
  }
  void WaitSend(int ms) override { m_pSocket->WaitSend(ms); }
  void Shutdown() override { m_pSocket->Shutdown(); }
  void SetKeepAlive(int idleMs, int intervalMs, int probes) override {
    m_pSocket->SetKeepAlive(idleMs, intervalMs, probes);
  }
  unsigned int RemoteIP() const override { return m_pSocket->RemoteIP(); }
  int RemotePort() const override { return m_pSocket->RemotePort(); }

 private:
  static void Linger(int ms) {
    if (ms > 0) std::this_thread::sleep_for(std::chrono::milliseconds(ms));
  }

  // 0 once the connection has carried what it may.
  std::size_t Granted(EDirection direction, std::size_t wanted) const {
    if (m_bSilent) return direction == EDirection::kSent ? wanted : 0;
    wanted = std::min(wanted, m_plan.m_nPiece);
    if (!m_bFirst || m_plan.m_llEndAt < 0 || direction != m_plan.m_direction) return wanted;
    const std::lock_guard lock(m_pState->m_mutex);
    const std::size_t carried = m_pState->m_carried[static_cast<int>(direction)].size();
    return std::min(wanted, static_cast<std::size_t>(m_plan.m_llEndAt) - carried);
  }
  void Carry(EDirection direction, const char* data, std::size_t bytes) {
    if (!m_bFirst) return;
    const std::lock_guard lock(m_pState->m_mutex);
    m_pState->m_carried[static_cast<int>(direction)].append(data, bytes);
  }
  EIoResult End() {
    {
      const std::lock_guard lock(m_pState->m_mutex);
      m_pState->m_bEnded = true;
    }
    m_bSilent = m_plan.m_bSilent;
    if (m_bSilent) return EIoResult::kWouldBlock;
    m_pSocket->Shutdown();
    return EIoResult::kClosed;
  }

  const std::shared_ptr<SState> m_pState;
  const std::unique_ptr<IStreamSocket> m_pSocket;
  SLinkPlan m_plan;       // constant after construction
  bool m_bFirst = false;  // constant after construction
  CSharedWord<bool> m_bSilent = false;
};

class CScopedSockets::CPlanned final : public ISocketSystem {
 public:
  explicit CPlanned(std::shared_ptr<SState> state) : m_pState(std::move(state)) {}
  std::unique_ptr<IListenSocket> Listen(const std::string& address, int port) override {
    return NativeSockets().Listen(address, port);
  }
  std::unique_ptr<IStreamSocket> Connect(const std::string& host, int port,
                                         const std::string& localAddress, int timeoutMs,
                                         const IWakeHandle& wake, ELinkFailure& why) override {
    auto socket = NativeSockets().Connect(host, port, localAddress, timeoutMs, wake, why);
    if (socket == nullptr) return nullptr;
    return std::make_unique<CPlannedSocket>(m_pState, std::move(socket));
  }
  std::unique_ptr<IWakeHandle> MakeWake() override { return NativeSockets().MakeWake(); }
  std::vector<std::string> AddressesOf(const std::string& host) override {
    return NativeSockets().AddressesOf(host);
  }

 private:
  const std::shared_ptr<SState> m_pState;
};

CScopedSockets::CScopedSockets()
    : m_pState(std::make_shared<SState>()),
      m_pSockets(std::make_unique<CPlanned>(m_pState)),
      m_pBefore(ReplaceSockets(m_pSockets.get())) {}

void CScopedSockets::Follow(const SLinkPlan& plan) {
  const std::lock_guard lock(m_pState->m_mutex);
  m_pState->m_plan = plan;
  m_pState->m_bArmed = true;
  m_pState->m_bEnded = false;
  for (std::string& carried : m_pState->m_carried) carried.clear();
}

std::string CScopedSockets::Carried(EDirection direction) const {
  const std::lock_guard lock(m_pState->m_mutex);
  return m_pState->m_carried[static_cast<int>(direction)];
}

bool CScopedSockets::HasEnded() const {
  const std::lock_guard lock(m_pState->m_mutex);
  return m_pState->m_bEnded;
}
