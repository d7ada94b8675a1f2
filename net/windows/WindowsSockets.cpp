// TCP sockets of Windows: non-blocking ones, waits in select on the socket and
// on a wake socket, a datagram socket that is connected to itself.

#include <winsock2.h>

#include <mstcpip.h>
#include <ws2tcpip.h>

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

#include "net/AddressText.h"
#include "net/Sockets.h"
#include "platform/BriefWait.h"
#include "platform/System.h"

namespace {

constexpr int kBacklog = 128;
constexpr int kMaxSlices = 64;

class CSocket {
 public:
  explicit CSocket(SOCKET socket = INVALID_SOCKET) : m_socket(socket) {}
  CSocket(const CSocket&) = delete;
  CSocket& operator=(const CSocket&) = delete;
  ~CSocket() {
    if (m_socket != INVALID_SOCKET) closesocket(m_socket);
  }
  SOCKET Get() const { return m_socket; }
  bool IsOpen() const { return m_socket != INVALID_SOCKET; }
  SOCKET Release() { return std::exchange(m_socket, INVALID_SOCKET); }

 private:
  SOCKET m_socket;
};

// Non-blocking, and of no process that this one starts.
SOCKET Prepared(SOCKET socket) {
  u_long yes = 1;
  if (socket != INVALID_SOCKET) {
    ioctlsocket(socket, FIONBIO, &yes);
    SetHandleInformation(reinterpret_cast<HANDLE>(socket), HANDLE_FLAG_INHERIT, 0);
  }
  return socket;
}

SOCKET MakeSocket(int type) {
  return Prepared(WSASocketW(AF_INET, type, 0, nullptr, 0, WSA_FLAG_OVERLAPPED));
}

sockaddr_in MakeAddress(in_addr ip, int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr = ip;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  return address;
}

const sockaddr* AsGeneric(const sockaddr_in& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

bool LocalAddress(SOCKET socket, sockaddr_in& address) {
  int size = sizeof address;
  return getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) == 0;
}

// A socket that has a datagram of its own, once woken, and keeps it. What
// others send does not reach it.
class CWindowsWake : public IWakeHandle {
 public:
  CWindowsWake() : m_socket(MakeSocket(SOCK_DGRAM)) {
    in_addr loopback{};
    loopback.s_addr = htonl(INADDR_LOOPBACK);
    sockaddr_in own = MakeAddress(loopback, 0);
    m_bValid = m_socket.IsOpen() && bind(m_socket.Get(), AsGeneric(own), sizeof own) == 0 &&
               LocalAddress(m_socket.Get(), own) &&
               connect(m_socket.Get(), AsGeneric(own), sizeof own) == 0;
  }
  bool IsValid() const { return m_bValid; }
  SOCKET Get() const { return m_socket.Get(); }
  void Wake() override { send(m_socket.Get(), "w", 1, 0); }

 private:
  const CSocket m_socket;
  bool m_bValid = false;  // constant after construction
};

enum class EWait { kReady, kWoken, kTimeout };
enum class EFor { kReading, kWriting };

// Of a connection that fails only the third set tells.
EWait WaitFor(SOCKET socket, EFor what, SOCKET wake, int timeoutMs) {
  fd_set reading;
  fd_set writing;
  fd_set failing;
  FD_ZERO(&reading);
  FD_ZERO(&writing);
  FD_ZERO(&failing);
  FD_SET(wake, &reading);
  FD_SET(socket, what == EFor::kReading ? &reading : &writing);
  FD_SET(socket, &failing);
  timeval limit{timeoutMs / 1000, timeoutMs % 1000 * 1000};
  const int ready = select(0, &reading, &writing, &failing, timeoutMs < 0 ? nullptr : &limit);
  if (ready == 0) return EWait::kTimeout;
  if (ready < 0) return EWait::kReady;  // the next call reports what is wrong
  return FD_ISSET(wake, &reading) != 0 ? EWait::kWoken : EWait::kReady;
}

void SetOption(SOCKET socket, int level, int name, int value) {
  setsockopt(socket, level, name, reinterpret_cast<const char*>(&value), sizeof value);
}

// The local address to bind to; "" is every address.
bool ParseLocal(const std::string& text, in_addr& ip) {
  ip.s_addr = htonl(INADDR_ANY);
  return text.empty() || inet_pton(AF_INET, text.c_str(), &ip) == 1;
}

// Returns what getaddrinfo does; only IPv4 addresses are given back.
int LookUp(const std::string& host, int family, std::vector<in_addr>& addresses) {
  addrinfo hints{};
  hints.ai_family = family;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  const int result = getaddrinfo(host.c_str(), nullptr, &hints, &found);
  if (result != 0) return result;
  for (const addrinfo* each = found; each != nullptr && family == AF_INET; each = each->ai_next) {
    addresses.push_back(reinterpret_cast<const sockaddr_in*>(each->ai_addr)->sin_addr);
  }
  freeaddrinfo(found);
  return 0;
}

ELinkFailure Resolve(const std::string& host, in_addr& ip) {
  if (inet_pton(AF_INET, host.c_str(), &ip) == 1) return ELinkFailure::kNone;
  std::vector<in_addr> found;
  const int result = LookUp(host, AF_INET, found);
  if (!found.empty()) {
    ip = found.front();
    return ELinkFailure::kNone;
  }
  if (result == WSATRY_AGAIN) return ELinkFailure::kNoNameService;
  return LookUp(host, AF_INET6, found) == 0 ? ELinkFailure::kOnlyIPv6 : ELinkFailure::kNoSuchName;
}

ELinkFailure FailureOf(int error) {
  switch (error) {
    case WSAECONNREFUSED:
      return ELinkFailure::kRefused;
    case WSAETIMEDOUT:
      return ELinkFailure::kTimedOut;
    case WSAENETUNREACH:
    case WSAEHOSTUNREACH:
    case WSAENETDOWN:
    case WSAEHOSTDOWN:
    case WSAEACCES:  // a filter that forbids it
    case WSAEINVAL:  // no route from the local address
      return ELinkFailure::kUnreachable;
    case WSAEADDRNOTAVAIL:
      return ELinkFailure::kLocalAddress;
    case WSAECONNRESET:
      return ELinkFailure::kEnded;
    default:
      return ELinkFailure::kOther;
  }
}

class CWindowsStream : public IStreamSocket {
 public:
  CWindowsStream(SOCKET socket, const sockaddr_in& remote, std::unique_ptr<CWindowsWake> wake)
      : m_socket(socket),
        m_pWake(std::move(wake)),
        m_nIP(ntohl(remote.sin_addr.s_addr)),
        m_nPort(ntohs(remote.sin_port)) {
    SetOption(socket, IPPROTO_TCP, TCP_NODELAY, 1);
  }

  EIoResult Receive(char* data, std::size_t size, std::size_t& received) override {
    int n = -1;
    const auto take = [&] {
      n = recv(m_socket.Get(), data, static_cast<int>(std::min<std::size_t>(size, INT_MAX)), 0);
      return n >= 0 || WSAGetLastError() != WSAEWOULDBLOCK;
    };
    bool over = m_briefWait.Try(take);
    while (!over && WaitFor(m_socket.Get(), EFor::kReading, m_pWake->Get(), -1) != EWait::kWoken) {
      over = take();
    }
    received = n > 0 ? static_cast<std::size_t>(n) : 0;
    return n > 0 ? EIoResult::kDone : EIoResult::kClosed;
  }

  EIoResult Send(const SSlice* slices, int count, std::size_t& sent) override {
    sent = 0;
    WSABUF parts[kMaxSlices];
    const int used = std::min(count, kMaxSlices);
    for (int i = 0; i < used; ++i) {
      parts[i].buf = const_cast<char*>(slices[i].m_pData);
      parts[i].len = static_cast<ULONG>(slices[i].m_nBytes);
    }
    DWORD bytes = 0;
    if (WSASend(m_socket.Get(), parts, static_cast<DWORD>(used), &bytes, 0, nullptr, nullptr) ==
        0) {
      sent = bytes;
      return EIoResult::kDone;
    }
    return WSAGetLastError() == WSAEWOULDBLOCK ? EIoResult::kWouldBlock : EIoResult::kClosed;
  }

  void WaitSend(int ms) override { WaitFor(m_socket.Get(), EFor::kWriting, m_pWake->Get(), ms); }

  // Nothing promises that a shutdown wakes who waits.
  void Shutdown() override {
    shutdown(m_socket.Get(), SD_BOTH);
    m_pWake->Wake();
  }

  // How often is the system's own choice.
  void SetKeepAlive(int idleMs, int intervalMs, [[maybe_unused]] int probes) override {
    tcp_keepalive values = {1, static_cast<ULONG>(idleMs), static_cast<ULONG>(intervalMs)};
    DWORD ignored = 0;
    WSAIoctl(m_socket.Get(), SIO_KEEPALIVE_VALS, &values, sizeof values, nullptr, 0, &ignored,
             nullptr, nullptr);
  }

  void SetReceiveBuffer(int bytes) override {
    SetOption(m_socket.Get(), SOL_SOCKET, SO_RCVBUF, bytes);
  }

  unsigned int RemoteIP() const override { return m_nIP; }
  int RemotePort() const override { return m_nPort; }

 private:
  const CSocket m_socket;
  const std::unique_ptr<CWindowsWake> m_pWake;  // woken by Shutdown
  CBriefWait m_briefWait;                       // of Receive
  const unsigned int m_nIP;
  const int m_nPort;
};

// Null when no socket is left.
std::unique_ptr<CWindowsWake> MakeValidWake() {
  auto wake = std::make_unique<CWindowsWake>();
  if (!wake->IsValid()) wake.reset();
  return wake;
}

class CWindowsListener : public IListenSocket {
 public:
  explicit CWindowsListener(SOCKET socket) : m_socket(socket) {}
  bool IsValid() const { return m_wake.IsValid(); }

  int Port() const override {
    sockaddr_in local{};
    return LocalAddress(m_socket.Get(), local) ? ntohs(local.sin_port) : 0;
  }

  EAcceptResult Accept(std::unique_ptr<IStreamSocket>& socket) override {
    for (;;) {
      if (WaitFor(m_socket.Get(), EFor::kReading, m_wake.Get(), -1) == EWait::kWoken) {
        return EAcceptResult::kStopped;
      }
      // Made first: a connection stays in the backlog until there is room for both.
      std::unique_ptr<CWindowsWake> wake = MakeValidWake();
      if (wake == nullptr) return EAcceptResult::kOutOfResources;
      sockaddr_in remote{};
      int size = sizeof remote;
      CSocket accepted(
          Prepared(accept(m_socket.Get(), reinterpret_cast<sockaddr*>(&remote), &size)));
      if (!accepted.IsOpen()) {
        const int code = WSAGetLastError();
        if (code == WSAEMFILE || code == WSAENOBUFS) return EAcceptResult::kOutOfResources;
        continue;  // the connection went away again
      }
      socket = std::make_unique<CWindowsStream>(accepted.Release(), remote, std::move(wake));
      return EAcceptResult::kAccepted;
    }
  }

  void Stop() override { m_wake.Wake(); }

 private:
  const CSocket m_socket;
  CWindowsWake m_wake;
};

class CWindowsSockets : public ISocketSystem {
 public:
  CWindowsSockets() {
    WSADATA data = {};
    WSAStartup(MAKEWORD(2, 2), &data);
  }

  std::unique_ptr<IListenSocket> Listen(const std::string& address, int port) override {
    in_addr ip{};
    if (!ParseLocal(address, ip) || port < 0 || port > 65535) return nullptr;
    CSocket socket(MakeSocket(SOCK_STREAM));
    if (!socket.IsOpen()) return nullptr;
    // Without it another program could take the port over.
    SetOption(socket.Get(), SOL_SOCKET, SO_EXCLUSIVEADDRUSE, 1);
    const sockaddr_in local = MakeAddress(ip, port);
    if (bind(socket.Get(), AsGeneric(local), sizeof local) != 0) return nullptr;
    if (listen(socket.Get(), kBacklog) != 0) return nullptr;
    auto listener = std::make_unique<CWindowsListener>(socket.Release());
    if (!listener->IsValid()) return nullptr;
    return listener;
  }

  std::unique_ptr<IStreamSocket> Connect(const std::string& host, int port,
                                         const std::string& localAddress, int timeoutMs,
                                         const IWakeHandle& wake, ELinkFailure& why) override {
    in_addr ip{};
    in_addr localIp{};
    why = ELinkFailure::kOther;
    if (port <= 0 || port > 65535 || !ParseLocal(localAddress, localIp)) return nullptr;
    if ((why = Resolve(host, ip)) != ELinkFailure::kNone) return nullptr;
    why = ELinkFailure::kOther;
    std::unique_ptr<CWindowsWake> streamWake = MakeValidWake();
    CSocket socket(MakeSocket(SOCK_STREAM));
    if (!socket.IsOpen() || streamWake == nullptr) return nullptr;
    if (!localAddress.empty()) {
      const sockaddr_in local = MakeAddress(localIp, 0);
      if (bind(socket.Get(), AsGeneric(local), sizeof local) != 0) {
        why = FailureOf(WSAGetLastError());
        return nullptr;
      }
    }
    const sockaddr_in remote = MakeAddress(ip, port);
    why = FinishConnect(socket.Get(), remote, timeoutMs,
                        static_cast<const CWindowsWake&>(wake).Get());
    if (why != ELinkFailure::kNone) return nullptr;
    return std::make_unique<CWindowsStream>(socket.Release(), remote, std::move(streamWake));
  }

  std::vector<std::string> AddressesOf(const std::string& host) override {
    std::vector<in_addr> found;
    LookUp(host, AF_INET, found);
    std::vector<std::string> texts;
    texts.reserve(found.size());
    for (const in_addr& ip : found) texts.push_back(AddressText(ntohl(ip.s_addr)));
    return texts;
  }

  std::unique_ptr<IWakeHandle> MakeWake() override { return std::make_unique<CWindowsWake>(); }

 private:
  static ELinkFailure FinishConnect(SOCKET socket, const sockaddr_in& remote, int timeoutMs,
                                    SOCKET wake) {
    if (connect(socket, AsGeneric(remote), sizeof remote) == 0) return ELinkFailure::kNone;
    if (const int code = WSAGetLastError(); code != WSAEWOULDBLOCK) return FailureOf(code);
    const EWait waited = WaitFor(socket, EFor::kWriting, wake, timeoutMs);
    if (waited == EWait::kTimeout) return ELinkFailure::kTimedOut;
    if (waited == EWait::kWoken) return ELinkFailure::kOther;
    int error = 0;
    int size = sizeof error;
    getsockopt(socket, SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &size);
    return error == 0 ? ELinkFailure::kNone : FailureOf(error);
  }
};

}  // namespace

ISocketSystem& NativeSockets() {
  static CWindowsSockets sockets;
  return sockets;
}
