// The floor under every transfer figure: reads 1 MiB, sends it; receives
// 1 MiB, writes it at its position. No answers, no progress; a short head
// before each file.
//
//   kqft-floor receive DIRECTORY    prints its port, takes one connection
//   kqft-floor send DIRECTORY PORT  sends its files to 127.0.0.1:PORT, waits for the end

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

#include "bench/posix/Loopback.h"

namespace {

constexpr std::size_t kBlockBytes = 1 << 20;

// Goes before each file.
struct SFileHead {
  char m_name[248];
  std::uint64_t m_ullBytes;
};

void Receive(const std::string& directory) {
  const int link = accept(Listen(1), nullptr, nullptr);
  const std::unique_ptr<char[]> block(new char[kBlockBytes]);
  std::size_t begin = 0;  // of what is in the block and not yet used
  std::size_t end = 0;
  const auto more = [&] {
    const ssize_t n = recv(link, block.get() + end, kBlockBytes - end, 0);
    if (n < 0) Fail("recv");
    end += static_cast<std::size_t>(n);
    return n > 0;
  };
  for (bool open = true; open;) {
    SFileHead head;
    std::memmove(block.get(), block.get() + begin, end - begin);
    end -= begin;
    begin = sizeof head;
    while (end < sizeof head && open) open = more();
    if (!open) break;
    std::memcpy(&head, block.get(), sizeof head);
    const std::string path = directory + "/" + head.m_name;
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (file < 0) Fail(path.c_str());
    for (std::uint64_t position = 0; position < head.m_ullBytes;) {
      if (begin == end) {
        begin = end = 0;
        if (!more()) Fail("the end came early");
      }
      const std::size_t bytes = std::min<std::uint64_t>(end - begin, head.m_ullBytes - position);
      const ssize_t n = pwrite(file, block.get() + begin, bytes, static_cast<off_t>(position));
      if (n != static_cast<ssize_t>(bytes)) Fail("pwrite");
      position += bytes;
      begin += bytes;
    }
    close(file);
  }
  shutdown(link, SHUT_RDWR);
}

void SendAll(int link, const char* data, std::size_t bytes) {
  while (bytes > 0) {
    const ssize_t part = send(link, data, bytes, MSG_NOSIGNAL);
    if (part < 0) Fail("send");
    data += part;
    bytes -= static_cast<std::size_t>(part);
  }
}

void SendFile(int link, const std::filesystem::directory_entry& entry, char* block) {
  SFileHead head{};
  entry.path().filename().string().copy(head.m_name, sizeof head.m_name - 1);
  head.m_ullBytes = entry.file_size();
  std::memcpy(block, &head, sizeof head);
  const int file = open(entry.path().c_str(), O_RDONLY);
  if (file < 0) Fail(entry.path().c_str());
  std::size_t used = sizeof head;
  for (std::uint64_t left = head.m_ullBytes; left > 0 || used > 0; used = 0) {
    const ssize_t n = read(file, block + used, std::min<std::uint64_t>(kBlockBytes - used, left));
    if (n < 0 || (n == 0 && left > 0)) Fail("read");
    SendAll(link, block, used + static_cast<std::size_t>(n));
    left -= static_cast<std::uint64_t>(n);
  }
  close(file);
}

void Send(const char* directory, int port) {
  const int link = socket(AF_INET, SOCK_STREAM, 0);
  const sockaddr_in address = Loopback(port);
  if (connect(link, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    Fail("connect");
  }
  const std::unique_ptr<char[]> block(new char[kBlockBytes]);
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    SendFile(link, entry, block.get());
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
    std::fprintf(stderr, "usage: kqft-floor receive DIRECTORY | send DIRECTORY PORT\n");
    return 2;
  }
  return 0;
}
