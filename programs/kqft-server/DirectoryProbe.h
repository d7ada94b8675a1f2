#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

/// Looks every few seconds whether the server can still open its directory: what
/// lies on a distributed file system may go while the process runs, and a
/// confined process may lose its right to it.
///
/// Threads: every operation from any thread.
class CDirectoryProbe {
 public:
  struct SResult {
    std::int64_t m_llTime = 0;  ///< of the look, seconds since 1970
    bool m_bOk = true;
    std::string m_strWords;  ///< why it cannot be opened; "" when it can
  };

  /// Looks for the first time. Blocks: as the file system does.
  explicit CDirectoryProbe(const std::string& directory);

  /// Looks on by a thread of its own, which goes with the process.
  /// @param onLost called by it, once, when two looks in a row have failed
  /// @return false without a thread
  bool Start(std::function<void()> onLost);

  SResult LastResult() const;

 private:
  struct SState;
  const std::shared_ptr<SState> m_pState;
};
