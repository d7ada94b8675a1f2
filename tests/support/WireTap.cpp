#include "support/WireTap.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

sockaddr_in Loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  return address;
}

// Passes on what has arrived; false when the sender has closed.
bool Pass(int from, int to, std::string& copy) {
  char block[65536];
  const ssize_t n = recv(from, block, sizeof block, 0);
  if (n <= 0) return false;
  copy.append(block, static_cast<std::size_t>(n));
  for (ssize_t sent = 0; sent < n;) {
    const ssize_t part = send(to, block + sent, static_cast<std::size_t>(n - sent), MSG_NOSIGNAL);
    if (part <= 0) return false;
    sent += part;
  }
  return true;
}

}  // namespace

CWireTap::CWireTap(int serverPort, const std::string& from)
    : m_listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address = Loopback(0);
  socklen_t size = sizeof address;
  if (bind(m_listener, reinterpret_cast<sockaddr*>(&address), size) == 0 &&
      listen(m_listener, 1) == 0 &&
      getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &size) == 0) {
    m_nPort = ntohs(address.sin_port);
  }
  m_thread = std::thread([this, serverPort, from] { Run(serverPort, from); });
}

CWireTap::~CWireTap() {
  shutdown(m_listener, SHUT_RDWR);  // wakes an accept that nobody came to
  WaitClosed();
  close(m_listener);
}

void CWireTap::WaitClosed() {
  if (m_thread.joinable()) m_thread.join();
}

void CWireTap::Run(int serverPort, const std::string& from) {
  const int client = accept(m_listener, nullptr, nullptr);
  if (client < 0) return;
  shutdown(m_listener, SHUT_RDWR);
  const int server = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in local = Loopback(0);
  if (!from.empty()) inet_pton(AF_INET, from.c_str(), &local.sin_addr);
  const sockaddr_in address = Loopback(serverPort);
  if (bind(server, reinterpret_cast<const sockaddr*>(&local), sizeof local) == 0 &&
      connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    pollfd fds[2] = {{client, POLLIN, 0}, {server, POLLIN, 0}};
    bool open = true;
    while (open && poll(fds, 2, -1) > 0) {
      if (fds[0].revents != 0) open = Pass(client, server, m_strFromClient);
      if (open && fds[1].revents != 0) open = Pass(server, client, m_strFromServer);
    }
  }
  close(server);
  close(client);
}
