// TCP sockets of a POSIX system: non-blocking descriptors, waits in poll on
// the descriptor and a wake handle, which is an eventfd of Linux.

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <utility>
#include <vector>

#include "net/AddressText.h"
#include "net/Sockets.h"
#include "platform/BriefWait.h"
#include "platform/System.h"

namespace {

constexpr int kBacklog = 128;
constexpr int kMaxSlices = 64;

// Unsent bytes that the kernel takes beyond what the peer's window allows.
// More would only hide from the queue how far the peer is behind.
constexpr int kNotSentLowWater = 1 << 20;

class CDescriptor {
 public:
  explicit CDescriptor(int fd = -1) : m_fd(fd) {}
  CDescriptor(const CDescriptor&) = delete;
  CDescriptor& operator=(const CDescriptor&) = delete;
  ~CDescriptor() {
    if (m_fd >= 0) close(m_fd);
  }
  int Get() const { return m_fd; }
  int Release() {
    const int fd = m_fd;
    m_fd = -1;
    return fd;
  }

 private:
  int m_fd;
};

// A descriptor under the number of a standard stream that the host has closed
// would receive what is meant for that stream.
int KeepOffStandardStreams(int fd) {
  if (fd < 0 || fd > STDERR_FILENO) return fd;
  const int other = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
  close(fd);
  return other;
}

// An event descriptor that, once written, stays readable.
class CPosixWake : public IWakeHandle {
 public:
  CPosixWake() : m_event(KeepOffStandardStreams(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))) {}
  bool IsValid() const { return m_event.Get() >= 0; }
  int Get() const { return m_event.Get(); }
  void Wake() override {
    const std::uint64_t one = 1;
    while (write(m_event.Get(), &one, sizeof one) < 0 && errno == EINTR) {
    }
  }

 private:
  CDescriptor m_event;
};

enum class EWait { kReady, kWoken, kTimeout };

EWait WaitFor(int fd, short events, int wakeFd, int timeoutMs) {
  const std::int64_t deadline = System().SteadyMilliseconds() + timeoutMs;
  pollfd fds[2] = {{fd, events, 0}, {wakeFd, POLLIN, 0}};
  for (int left = timeoutMs;;) {
    const int ready = poll(fds, 2, left);
    if (ready > 0) return fds[1].revents != 0 ? EWait::kWoken : EWait::kReady;
    if (ready == 0) return EWait::kTimeout;
    if (errno != EINTR) return EWait::kReady;  // the next call reports what is wrong
    if (timeoutMs >= 0) {
      left = static_cast<int>(std::max<std::int64_t>(deadline - System().SteadyMilliseconds(), 0));
    }
  }
}

void SetOption(int fd, int level, int name, int value) {
  setsockopt(fd, level, name, &value, sizeof value);
}

int MakeSocket() {
  return KeepOffStandardStreams(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
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
  if (result == EAI_AGAIN) return ELinkFailure::kNoNameService;
  return LookUp(host, AF_INET6, found) == 0 ? ELinkFailure::kOnlyIPv6 : ELinkFailure::kNoSuchName;
}

ELinkFailure FailureOf(int error) {
  switch (error) {
    case ECONNREFUSED:
      return ELinkFailure::kRefused;
    case ETIMEDOUT:
      return ELinkFailure::kTimedOut;
    case ENETUNREACH:
    case EHOSTUNREACH:
    case ENETDOWN:
    case EHOSTDOWN:
    case EACCES:  // a route that forbids it
    case EPERM:   // a filter that does
    case EINVAL:  // a route that swallows it, or none from the local address
      return ELinkFailure::kUnreachable;
    case EADDRNOTAVAIL:
      return ELinkFailure::kLocalAddress;
    case ECONNRESET:
      return ELinkFailure::kEnded;
    default:
      return ELinkFailure::kOther;
  }
}

class CPosixStream : public IStreamSocket {
 public:
  CPosixStream(int fd, const sockaddr_in& remote, std::unique_ptr<CPosixWake> wake)
      : m_socket(fd),
        m_pWake(std::move(wake)),
        m_nIP(ntohl(remote.sin_addr.s_addr)),
        m_nPort(ntohs(remote.sin_port)) {
    SetOption(fd, IPPROTO_TCP, TCP_NODELAY, 1);
    SetOption(fd, IPPROTO_TCP, TCP_NOTSENT_LOWAT, kNotSentLowWater);
  }

  EIoResult Receive(char* data, std::size_t size, std::size_t& received) override {
    ssize_t n = -1;
    const auto take = [&] {
      n = recv(m_socket.Get(), data, size, 0);
      return n >= 0 || (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR);
    };
    bool over = m_briefWait.Try(take);
    while (!over && WaitFor(m_socket.Get(), POLLIN, m_pWake->Get(), -1) != EWait::kWoken) {
      over = take();
    }
    received = n > 0 ? static_cast<std::size_t>(n) : 0;
    return n > 0 ? EIoResult::kDone : EIoResult::kClosed;
  }

  EIoResult Send(const SSlice* slices, int count, std::size_t& sent) override {
    sent = 0;
    iovec parts[kMaxSlices];
    const int used = count < kMaxSlices ? count : kMaxSlices;
    for (int i = 0; i < used; ++i) {
      parts[i].iov_base = const_cast<char*>(slices[i].m_pData);
      parts[i].iov_len = slices[i].m_nBytes;
    }
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = static_cast<std::size_t>(used);
    for (;;) {
      const ssize_t n = sendmsg(m_socket.Get(), &message, MSG_NOSIGNAL);
      if (n >= 0) {
        sent = static_cast<std::size_t>(n);
        return EIoResult::kDone;
      }
      if (errno == EAGAIN || errno == EWOULDBLOCK) return EIoResult::kWouldBlock;
      if (errno != EINTR) return EIoResult::kClosed;
    }
  }

  void WaitSend(int ms) override { WaitFor(m_socket.Get(), POLLOUT, m_pWake->Get(), ms); }

  // Not every system wakes by shutdown who waits.
  void Shutdown() override {
    shutdown(m_socket.Get(), SHUT_RDWR);
    m_pWake->Wake();
  }

  void SetKeepAlive(int idleMs, int intervalMs, int probes) override {
    SetOption(m_socket.Get(), SOL_SOCKET, SO_KEEPALIVE, 1);
    SetOption(m_socket.Get(), IPPROTO_TCP, TCP_KEEPIDLE, (idleMs + 999) / 1000);
    SetOption(m_socket.Get(), IPPROTO_TCP, TCP_KEEPINTVL, (intervalMs + 999) / 1000);
    SetOption(m_socket.Get(), IPPROTO_TCP, TCP_KEEPCNT, probes);
  }

  void SetReceiveBuffer(int bytes) override {
    SetOption(m_socket.Get(), SOL_SOCKET, SO_RCVBUF, bytes);
  }

  unsigned int RemoteIP() const override { return m_nIP; }
  int RemotePort() const override { return m_nPort; }

 private:
  CDescriptor m_socket;
  const std::unique_ptr<CPosixWake> m_pWake;  // woken by Shutdown
  CBriefWait m_briefWait;                     // of Receive
  const unsigned int m_nIP;
  const int m_nPort;
};

// Null when no descriptor is left.
std::unique_ptr<CPosixWake> MakeValidWake() {
  auto wake = std::make_unique<CPosixWake>();
  if (!wake->IsValid()) wake.reset();
  return wake;
}

class CPosixListener : public IListenSocket {
 public:
  explicit CPosixListener(int fd) : m_socket(fd) {}
  bool IsValid() const { return m_wake.IsValid(); }

  int Port() const override {
    sockaddr_in local{};
    socklen_t size = sizeof local;
    if (getsockname(m_socket.Get(), reinterpret_cast<sockaddr*>(&local), &size) != 0) return 0;
    return ntohs(local.sin_port);
  }

  EAcceptResult Accept(std::unique_ptr<IStreamSocket>& socket) override {
    for (;;) {
      if (WaitFor(m_socket.Get(), POLLIN, m_wake.Get(), -1) == EWait::kWoken) {
        return EAcceptResult::kStopped;
      }
      // Made first: a connection stays in the backlog until there is room for both.
      std::unique_ptr<CPosixWake> wake = MakeValidWake();
      if (wake == nullptr) return EAcceptResult::kOutOfResources;
      sockaddr_in remote{};
      socklen_t size = sizeof remote;
      CDescriptor fd(
          KeepOffStandardStreams(accept4(m_socket.Get(), reinterpret_cast<sockaddr*>(&remote),
                                         &size, SOCK_CLOEXEC | SOCK_NONBLOCK)));
      if (fd.Get() < 0) {
        if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
          return EAcceptResult::kOutOfResources;
        }
        continue;  // the connection went away again, or somebody else's signal
      }
      socket = std::make_unique<CPosixStream>(fd.Release(), remote, std::move(wake));
      return EAcceptResult::kAccepted;
    }
  }

  void Stop() override { m_wake.Wake(); }

 private:
  CDescriptor m_socket;
  CPosixWake m_wake;
};

class CPosixSockets : public ISocketSystem {
 public:
  std::unique_ptr<IListenSocket> Listen(const std::string& address, int port) override {
    in_addr ip{};
    if (!ParseLocal(address, ip) || port < 0 || port > 65535) return nullptr;
    CDescriptor fd(MakeSocket());
    if (fd.Get() < 0) return nullptr;
    SetOption(fd.Get(), SOL_SOCKET, SO_REUSEADDR, 1);
    const sockaddr_in local = MakeAddress(ip, port);
    if (bind(fd.Get(), AsGeneric(local), sizeof local) != 0) return nullptr;
    if (listen(fd.Get(), kBacklog) != 0) return nullptr;
    auto listener = std::make_unique<CPosixListener>(fd.Release());
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
    std::unique_ptr<CPosixWake> streamWake = MakeValidWake();
    CDescriptor fd(MakeSocket());
    if (fd.Get() < 0 || streamWake == nullptr) return nullptr;
    if (!localAddress.empty()) {
      // The port is chosen at connect, so that one address can reach many
      // servers without running out of ports (ip(7), IP_BIND_ADDRESS_NO_PORT).
      SetOption(fd.Get(), IPPROTO_IP, IP_BIND_ADDRESS_NO_PORT, 1);
      const sockaddr_in local = MakeAddress(localIp, 0);
      if (bind(fd.Get(), AsGeneric(local), sizeof local) != 0) {
        why = FailureOf(errno);
        return nullptr;
      }
    }
    const sockaddr_in remote = MakeAddress(ip, port);
    why = FinishConnect(fd.Get(), remote, timeoutMs, static_cast<const CPosixWake&>(wake).Get());
    if (why != ELinkFailure::kNone) return nullptr;
    return std::make_unique<CPosixStream>(fd.Release(), remote, std::move(streamWake));
  }

  std::vector<std::string> AddressesOf(const std::string& host) override {
    std::vector<in_addr> found;
    LookUp(host, AF_INET, found);
    std::vector<std::string> texts;
    texts.reserve(found.size());
    for (const in_addr& ip : found) texts.push_back(AddressText(ntohl(ip.s_addr)));
    return texts;
  }

  std::unique_ptr<IWakeHandle> MakeWake() override { return std::make_unique<CPosixWake>(); }

 private:
  static ELinkFailure FinishConnect(int fd, const sockaddr_in& remote, int timeoutMs, int wakeFd) {
    if (connect(fd, AsGeneric(remote), sizeof remote) == 0) return ELinkFailure::kNone;
    if (errno != EINPROGRESS && errno != EINTR) return FailureOf(errno);
    const EWait waited = WaitFor(fd, POLLOUT, wakeFd, timeoutMs);
    if (waited == EWait::kTimeout) return ELinkFailure::kTimedOut;
    if (waited == EWait::kWoken) return ELinkFailure::kOther;
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size);
    return error == 0 ? ELinkFailure::kNone : FailureOf(error);
  }
};

}  // namespace

ISocketSystem& NativeSockets() {
  static CPosixSockets sockets;
  return sockets;
}
