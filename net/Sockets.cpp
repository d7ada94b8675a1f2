// The socket implementation in force.

#include "net/Sockets.h"

#include <atomic>

namespace {

std::atomic<ISocketSystem*> g_pReplacement{nullptr};

}  // namespace

ISocketSystem& Sockets() {
  ISocketSystem* replacement = g_pReplacement.load();
  return replacement != nullptr ? *replacement : NativeSockets();
}

ISocketSystem* ReplaceSockets(ISocketSystem* sockets) {
  return g_pReplacement.exchange(sockets);
}
