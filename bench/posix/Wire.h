#pragma once

// Bare connections and packets, for measuring without our own client.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "net/NetWorkPackHead.h"

/// A connection to 127.0.0.1:port from the address given; -1 on a failure.
inline int ConnectFrom(const std::string& from, int port) {
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  const int on = 1;
  // The port is chosen when the remote side is known: more connections fit.
  setsockopt(fd, IPPROTO_IP, IP_BIND_ADDRESS_NO_PORT, &on, sizeof on);
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  inet_pton(AF_INET, from.c_str(), &address.sin_addr);
  bool done = bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  done = done && connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  if (done) return fd;
  close(fd);
  return -1;
}

inline std::string Packet(int code, const std::string& body) {
  CNetWorkPackHead head;
  head.SetCode(static_cast<unsigned>(code));
  head.SetBodyLength(static_cast<unsigned>(body.size()));
  std::string packet(kPackHeadBytes, '\0');
  head.CopyTo(packet.data());
  return packet + body;
}

inline bool SendAll(int fd, const std::string& data) {
  return send(fd, data.data(), data.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(data.size());
}

inline bool ReceiveAll(int fd, char* data, std::size_t bytes) {
  return recv(fd, data, bytes, MSG_WAITALL) == static_cast<ssize_t>(bytes);
}
