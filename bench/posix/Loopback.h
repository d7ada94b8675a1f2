#pragma once

// Sockets of 127.0.0.1 for programs that end where anything fails.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

[[noreturn]] inline void Fail(const char* what) {
  std::perror(what);
  std::exit(1);
}

inline sockaddr_in Loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  return address;
}

/// A listener whose port the system picks; the port is printed.
inline int Listen(int backlog) {
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = Loopback(0);
  if (bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) Fail("bind");
  if (listen(listener, backlog) != 0) Fail("listen");
  socklen_t size = sizeof address;
  getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
  std::printf("%d\n", ntohs(address.sin_port));
  std::fflush(stdout);
  return listener;
}
