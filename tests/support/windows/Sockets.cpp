#include "support/Sockets.h"

#include <gtest/gtest.h>
#include <winsock2.h>

#include <ws2tcpip.h>

#include "net/Sockets.h"

namespace {

SOCKET Handle(int fd) {
  return static_cast<SOCKET>(fd);
}

template <typename T>
void SetOption(int fd, int name, const T& value) {
  setsockopt(Handle(fd), SOL_SOCKET, name, reinterpret_cast<const char*>(&value), sizeof value);
}

sockaddr_in Address(const std::string& host, int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  inet_pton(AF_INET, host.empty() ? "0.0.0.0" : host.c_str(), &address.sin_addr);
  address.sin_port = htons(static_cast<u_short>(port));
  return address;
}

int BoundSocket(const std::string& host, int port) {
  NativeSockets();  // which makes the system's ready
  // Handles are small numbers.
  const int fd = static_cast<int>(socket(AF_INET, SOCK_STREAM, 0));
  const sockaddr_in local = Address(host, port);
  EXPECT_EQ(bind(Handle(fd), reinterpret_cast<const sockaddr*>(&local), sizeof local), 0) << host;
  return fd;
}

}  // namespace

CRawClient::CRawClient(int port, const std::string& from) : m_nServerPort(port), m_strFrom(from) {
  Connect(0);
}

void CRawClient::Connect(int localPort) {
  m_fd = BoundSocket(m_strFrom, localPort);
  const sockaddr_in server = Address("127.0.0.1", m_nServerPort);
  SetOption(m_fd, SO_RCVTIMEO, DWORD{60000});
  EXPECT_EQ(connect(Handle(m_fd), reinterpret_cast<const sockaddr*>(&server), sizeof server), 0);
}

void CRawClient::Close() {
  if (m_fd >= 0) closesocket(Handle(m_fd));
  m_fd = -1;
}

void CRawClient::Reconnect() {
  const int port = LocalPort();
  const linger reset{1, 0};
  SetOption(m_fd, SO_LINGER, reset);
  Close();
  Connect(port);
}

int CRawClient::LocalPort() const {
  sockaddr_in local{};
  int size = sizeof local;
  EXPECT_EQ(getsockname(Handle(m_fd), reinterpret_cast<sockaddr*>(&local), &size), 0);
  return ntohs(local.sin_port);
}

bool CRawClient::Send(const std::string& bytes) const {
  return send(Handle(m_fd), bytes.data(), static_cast<int>(bytes.size()), 0) == std::ssize(bytes);
}

std::string CRawClient::Receive(std::size_t bytes) const {
  std::string data(bytes, '\0');
  std::size_t have = 0;
  while (have < bytes) {
    const int n = recv(Handle(m_fd), data.data() + have, static_cast<int>(bytes - have), 0);
    if (n <= 0) break;
    have += static_cast<std::size_t>(n);
  }
  data.resize(have);
  return data;
}

bool CRawClient::WaitClosed() const {
  char block[4096];
  int n = 1;
  while (n > 0) n = recv(Handle(m_fd), block, sizeof block, 0);
  return n == 0 || WSAGetLastError() == WSAECONNRESET;
}
