#include "support/Sockets.h"

#include <arpa/inet.h>
#include <netinet/in.h>
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

int BoundSocket(const std::string& host, int port) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const sockaddr_in local = Address(host, port);
  EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr*>(&local), sizeof local), 0) << host;
  return fd;
}

}  // namespace

CRawClient::CRawClient(int port, const std::string& from) : m_nServerPort(port), m_strFrom(from) {
  Connect(0);
}

void CRawClient::Connect(int localPort) {
  m_fd = BoundSocket(m_strFrom, localPort);
  const sockaddr_in server = Address("127.0.0.1", m_nServerPort);
  const timeval limit{60, 0};
  setsockopt(m_fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  EXPECT_EQ(connect(m_fd, reinterpret_cast<const sockaddr*>(&server), sizeof server), 0);
}

void CRawClient::Close() {
  if (m_fd >= 0) close(m_fd);
  m_fd = -1;
}

void CRawClient::Reconnect() {
  const int port = LocalPort();
  const linger reset{1, 0};
  setsockopt(m_fd, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
  Close();
  Connect(port);
}

int CRawClient::LocalPort() const {
  sockaddr_in local{};
  socklen_t size = sizeof local;
  EXPECT_EQ(getsockname(m_fd, reinterpret_cast<sockaddr*>(&local), &size), 0);
  return ntohs(local.sin_port);
}

bool CRawClient::Send(const std::string& bytes) const {
  return send(m_fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == std::ssize(bytes);
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
