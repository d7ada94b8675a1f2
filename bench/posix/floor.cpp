// The floor under every transfer figure: reads 1 MiB, sends it; receives
// 1 MiB, writes it at its position. No framing, no answers, no progress.
//
//   kqft-floor receive FILE        prints its port, takes one connection
//   kqft-floor send FILE PORT      sends FILE to 127.0.0.1:PORT, waits for the end

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

constexpr std::size_t kBlockBytes = 1 << 20;

[[noreturn]] void Fail(const char* what) {
  std::perror(what);
  std::exit(1);
}

sockaddr_in Loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  return address;
}

void Receive(const char* path) {
  const int listener = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = Loopback(0);
  if (bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) Fail("bind");
  if (listen(listener, 1) != 0) Fail("listen");
  socklen_t size = sizeof address;
  getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
  std::printf("%d\n", ntohs(address.sin_port));
  std::fflush(stdout);
  const int link = accept(listener, nullptr, nullptr);
  const int file = open(path, O_WRONLY | O_CREAT | O_TRUNC, 0644);
  if (link < 0 || file < 0) Fail(path);
  const std::unique_ptr<char[]> block(new char[kBlockBytes]);
  off_t position = 0;
  for (;;) {
    const ssize_t n = recv(link, block.get(), kBlockBytes, 0);
    if (n < 0) Fail("recv");
    if (n == 0) break;
    if (pwrite(file, block.get(), static_cast<std::size_t>(n), position) != n) Fail("pwrite");
    position += n;
  }
  close(file);
  shutdown(link, SHUT_RDWR);
}

void Send(const char* path, int port) {
  const int link = socket(AF_INET, SOCK_STREAM, 0);
  const sockaddr_in address = Loopback(port);
  if (connect(link, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    Fail("connect");
  }
  const int file = open(path, O_RDONLY);
  if (file < 0) Fail(path);
  const std::unique_ptr<char[]> block(new char[kBlockBytes]);
  for (;;) {
    const ssize_t n = read(file, block.get(), kBlockBytes);
    if (n < 0) Fail("read");
    if (n == 0) break;
    for (ssize_t sent = 0; sent < n;) {
      const ssize_t part =
          send(link, block.get() + sent, static_cast<std::size_t>(n - sent), MSG_NOSIGNAL);
      if (part < 0) Fail("send");
      sent += part;
    }
  }
  shutdown(link, SHUT_WR);
  char end = 0;
  while (recv(link, &end, 1, 0) > 0) {
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "receive") == 0) {
    Receive(argv[2]);
  } else if (argc == 4 && std::strcmp(argv[1], "send") == 0) {
    Send(argv[2], std::atoi(argv[3]));
  } else {
    std::fprintf(stderr, "usage: kqft-floor receive FILE | send FILE PORT\n");
    return 2;
  }
  return 0;
}
