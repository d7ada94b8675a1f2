#include "support/Sockets.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>

namespace {

sockaddr_in Address(const std::string& host, int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  inet_pton(AF_INET, host.empty() ? "0.0.0.0" : host.c_str(), &address.sin_addr);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  return address;
}

int BoundSocket(const std::string& host) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in local = Address(host, 0);
  EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&local), sizeof local), 0) << host;
  return fd;
}

bool SendAll(int fd, const char* data, std::size_t bytes) {
  while (bytes > 0) {
    const ssize_t n = send(fd, data, bytes, MSG_NOSIGNAL);
    if (n <= 0) return false;
    data += n;
    bytes -= static_cast<std::size_t>(n);
  }
  return true;
}

// Passes on what has arrived; false when the sender has closed.
bool Pass(int from, int to, std::string& copy) {
  char block[65536];
  const ssize_t n = recv(from, block, sizeof block, 0);
  if (n <= 0) return false;
  copy.append(block, static_cast<std::size_t>(n));
  return SendAll(to, block, static_cast<std::size_t>(n));
}

}  // namespace

CRawClient::CRawClient(int port, const std::string& from) : m_fd(BoundSocket(from)) {
  const sockaddr_in server = Address("127.0.0.1", port);
  const timeval limit{60, 0};
  setsockopt(m_fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  EXPECT_EQ(connect(m_fd, reinterpret_cast<const sockaddr*>(&server), sizeof server), 0);
}

void CRawClient::Close() {
  if (m_fd >= 0) close(m_fd);
  m_fd = -1;
}

bool CRawClient::Send(const std::string& bytes) const {
  return SendAll(m_fd, bytes.data(), bytes.size());
}

std::string CRawClient::Receive(std::size_t bytes) const {
  std::string data(bytes, '\0');
  const ssize_t received = recv(m_fd, data.data(), bytes, MSG_WAITALL);
  data.resize(received < 0 ? 0 : static_cast<std::size_t>(received));
  return data;
}

bool CRawClient::WaitClosed() const {
  char block[4096];
  ssize_t n = 1;
  while (n > 0) n = recv(m_fd, block, sizeof block, 0);
  return n == 0 || errno == ECONNRESET;
}

CWireTap::CWireTap(int serverPort, const std::string& from)
    : CRawClient(serverPort, from), m_listener(BoundSocket("127.0.0.1")) {
  EXPECT_EQ(listen(m_listener, 1), 0);
  m_thread = std::thread([this] { Run(); });
}

CWireTap::~CWireTap() {
  shutdown(m_listener, SHUT_RDWR);  // wakes an accept that nobody came to
  WaitClosed();
  close(m_listener);
}

int CWireTap::Port() const {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &size);
  return ntohs(address.sin_port);
}

void CWireTap::WaitClosed() {
  if (m_thread.joinable()) m_thread.join();
}

void CWireTap::Run() {
  const int client = accept(m_listener, nullptr, nullptr);
  shutdown(m_listener, SHUT_RDWR);
  pollfd fds[2] = {{client, POLLIN, 0}, {m_fd, POLLIN, 0}};
  bool open = client >= 0;
  while (open && poll(fds, 2, -1) > 0) {
    if (fds[0].revents != 0) open = Pass(client, m_fd, m_strFromClient);
    if (open && fds[1].revents != 0) open = Pass(m_fd, client, m_strFromServer);
  }
  Close();
  close(client);
}
