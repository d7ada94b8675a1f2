// The system in force: the operating system unless a test put its own there.

#include "platform/System.h"

#include <atomic>

namespace {

std::atomic<ISystem*> systemInForce{nullptr};

// Fixes the start of the clock while the process starts, not at its first use.
[[maybe_unused]] const ISystem& startOfClock = NativeSystem();

}  // namespace

ISystem& System() {
  ISystem* const replaced = systemInForce.load(std::memory_order_acquire);
  return replaced != nullptr ? *replaced : NativeSystem();
}

ISystem* ReplaceSystem(ISystem* system) {
  ISystem* const before = systemInForce.exchange(system);
  return before != nullptr ? before : &NativeSystem();
}
