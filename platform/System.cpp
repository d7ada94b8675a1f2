// The system in force: the operating system unless a test put its own there.

#include "platform/System.h"

#include <atomic>

#include "platform/ForwardingFile.h"

namespace {

std::atomic<ISystem*> systemInForce{nullptr};

// Fixes the start of the clock while the process starts, not at its first use.
[[maybe_unused]] const ISystem& startOfClock = NativeSystem();

}  // namespace

ISystem& System() {
  ISystem* const replaced = systemInForce.load(std::memory_order_acquire);
  return replaced != nullptr ? *replaced : NativeSystem();
}

std::unique_ptr<ISystemFile> CForwardingSystem::Wrap(const std::string& path,
                                                     std::unique_ptr<ISystemFile> file) {
  return std::make_unique<CForwardingFile>(*this, path, std::move(file));
}

ESystemError CForwardingSystem::OpenDirectory(const std::string& top, const std::string& below,
                                              bool make,
                                              std::unique_ptr<ISystemDirectory>& directory) {
  directory = nullptr;
  const std::string path = below.empty() ? top : top + "/" + below;
  const ESystemError error = Call(
      kOpenDirectory, path, [&] { return m_target.OpenDirectory(top, below, make, directory); });
  if (directory != nullptr) {
    directory = std::make_unique<CForwardingDirectory>(*this, path, std::move(directory));
  }
  return error;
}

ISystem* ReplaceSystem(ISystem* system) {
  ISystem* const before = systemInForce.exchange(system);
  return before != nullptr ? before : &NativeSystem();
}
