// The server under a service manager, and what it prints there.

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "support/Programs.h"

namespace {

std::int64_t Lines(const std::string& text) {
  return std::count(text.begin(), text.end(), '\n');
}

TEST(ProgramService, ServerTellsItsStateToServiceManagerAndOutputStream) {
  const CTempDirectory directory;
  const int manager = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un address = {AF_UNIX, {}};
  std::strncpy(address.sun_path, (directory / "notify").c_str(), sizeof address.sun_path - 1);
  ASSERT_EQ(bind(manager, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  const auto next = [&] {
    char text[256] = {};
    recv(manager, text, sizeof text - 1, 0);
    return std::string(text);
  };
  setenv("NOTIFY_SOCKET", address.sun_path, 1);
  CServerProgram server;
  unsetenv("NOTIFY_SOCKET");
  EXPECT_EQ(next(), "READY=1");
  server.Process().Signal(SIGHUP);
  EXPECT_EQ(next().substr(0, 27), "RELOADING=1\nMONOTONIC_USEC=");
  EXPECT_EQ(next(), "READY=1");
  EXPECT_EQ(next().substr(0, 36), "STATUS=0 links, 0 transfers, 0 B/s, ");
  EXPECT_EQ(CWorkstation(server.Port()).Start({"ls"})->Wait(), 0);
  EXPECT_TRUE(WaitUntil([&] { return Lines(server.Process().Output()) == 2; }));
  EXPECT_EQ(server.Process().Output().substr(0, 21), "new client:127.0.0.2:");
  EXPECT_NE(server.Process().Output().find("\nclient disconnect:127.0.0.2:"), std::string::npos);
  EXPECT_EQ(ReadTree(server.LogPath()).rbegin()->first.substr(0, 18), "KQFileTransServer_");
  server.Process().Signal(SIGINT);
  std::string last = next();
  while (last.substr(0, 7) == "STATUS=") last = next();
  EXPECT_EQ(last, "STOPPING=1");
  EXPECT_EQ(server.Process().Wait(), 0);
  close(manager);
}

TEST(ProgramService, ServerWithoutItsDirectoryEndsWithAStatusOfItsOwn) {
  CServerProgram server;
  const CTempDirectory elsewhere;
  ASSERT_EQ(rename(server.ProjectPath("").c_str(), (elsewhere / "moved").c_str()), 0);
  EXPECT_EQ(server.Process().Wait(), 75);
  EXPECT_TRUE(Holds(server.Process().Error(), ": No such file or directory; it ends, "));
}

}  // namespace
