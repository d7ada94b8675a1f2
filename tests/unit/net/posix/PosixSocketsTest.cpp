// Waits on a stream end by its own wake, also where shutdown wakes nobody.

#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <future>

#include "net/Sockets.h"
#include "support/Sockets.h"
#include "support/TestSystem.h"

namespace {

std::atomic<bool> g_shutdownWorks{true};

}  // namespace

// Stands before the C library's.
extern "C" int shutdown(int fd, int how) noexcept {
  return g_shutdownWorks ? static_cast<int>(syscall(SYS_shutdown, fd, how)) : 0;
}

namespace {

TEST(PosixSockets, WaitsEndWhereShutdownWakesNobody) {
  const auto listener = NativeSockets().Listen("127.0.0.1", 0);
  const CRawClient silent(listener->Port());
  std::unique_ptr<IStreamSocket> stream;
  ASSERT_EQ(listener->Accept(stream), EAcceptResult::kAccepted);
  const std::string block(1 << 20, 'x');
  const SSlice slice{block.data(), block.size()};
  std::size_t bytes = 0;
  while (stream->Send(&slice, 1, bytes) == EIoResult::kDone) continue;  // until it is full

  const auto receiver = std::async(std::launch::async, [&] {
    char data[16];
    std::size_t received = 0;
    EXPECT_EQ(stream->Receive(data, sizeof data, received), EIoResult::kClosed);
  });
  const auto sender = std::async(std::launch::async, [&] { stream->WaitSend(-1); });
  g_shutdownWorks = false;
  stream->Shutdown();
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  EXPECT_EQ(receiver.wait_until(end), std::future_status::ready);
  EXPECT_EQ(sender.wait_until(end), std::future_status::ready);
  g_shutdownWorks = true;
  stream->Shutdown();
}

}  // namespace
