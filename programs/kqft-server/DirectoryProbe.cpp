// Directory probe: opens the directory and reads the beginning of it. Creates
// nothing, so that it costs little and a full disk does not count.

#include "programs/kqft-server/DirectoryProbe.h"

#include <filesystem>
#include <mutex>
#include <system_error>
#include <utility>

#include "platform/PathBytes.h"
#include "platform/System.h"

namespace {

constexpr int kLookMs = 3000;
constexpr int kFailedLooks = 2;

// That too much is open says nothing of the directory.
CDirectoryProbe::SResult Look(const std::string& directory) {
  std::error_code error;
  const std::filesystem::directory_iterator first(PathOf(directory), error);
  const bool isOpen = !error || error == std::errc::too_many_files_open ||
                      error == std::errc::too_many_files_open_in_system;
  return {System().WallSeconds(), isOpen, isOpen ? "" : error.message()};
}

}  // namespace

struct CDirectoryProbe::SState {
  explicit SState(std::string directory)
      : m_strDirectory(std::move(directory)), m_result(Look(m_strDirectory)) {}

  void Run(const std::function<void()>& onLost) {
    for (int failed = 0; failed < kFailedLooks;) {
      System().Sleep(kLookMs);
      SResult result = Look(m_strDirectory);
      failed = result.m_bOk ? 0 : failed + 1;
      const std::lock_guard lock(m_mutex);
      m_result = std::move(result);
    }
    onLost();
  }

  const std::string m_strDirectory;
  mutable std::mutex m_mutex;
  SResult m_result;  // guarded by m_mutex
};

CDirectoryProbe::CDirectoryProbe(const std::string& directory)
    : m_pState(std::make_shared<SState>(directory)) {}

bool CDirectoryProbe::Start(std::function<void()> onLost) {
  return System().StartThread([state = m_pState, lost = std::move(onLost)] { state->Run(lost); }) ==
         ESystemError::kNone;
}

CDirectoryProbe::SResult CDirectoryProbe::LastResult() const {
  const std::lock_guard lock(m_pState->m_mutex);
  return m_pState->m_result;
}
