// Readiness as systemd wants to hear it: one datagram to the socket that it
// names in the environment.

#include "programs/ServiceNotify.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>

void NotifyServiceManager(const std::string& state) {
  const char* path = std::getenv("NOTIFY_SOCKET");
  sockaddr_un address = {};
  if (path == nullptr || (path[0] != '/' && path[0] != '@') ||
      std::strlen(path) >= sizeof(address.sun_path)) {
    return;
  }
  address.sun_family = AF_UNIX;
  const std::size_t length = std::strlen(path);
  std::memcpy(address.sun_path, path, length);
  if (path[0] == '@') address.sun_path[0] = '\0';  // a name outside the file system

  const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return;
  sendto(fd, state.data(), state.size(), MSG_NOSIGNAL, reinterpret_cast<const sockaddr*>(&address),
         static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length));
  close(fd);
}
