#pragma once

#include <cstdint>
#include <mutex>
#include <string>

#include "bindings/c/Face.h"
#include "transfer/ProjectClient.h"
#include "transfer/TransferObserver.h"

/// Passes on to a host's callbacks what a project client tells, and keeps how
/// far it is for those who ask.
class CClientObserver : public ITransferObserver {
 public:
  /// While no operation runs.
  void SetCallbacks(const kqft_callbacks& callbacks) { m_callbacks = callbacks; }

  /// Any thread.
  void SetRunning(bool running);
  /// @param file where to put the name of the file; null for nowhere
  kqft_progress Progress(char* file, std::size_t fileBytes) const;

  void OnLeftOut(const SLeftOut& left) override;
  void OnPlanned(std::size_t files, std::int64_t bytes) override;
  void OnProgress(const STransferProgress& progress) override;
  void OnFileEnd(const STransferItem& item) override;
  void OnWaiting(const std::string& why) override;
  void OnRound(const STransferResult& result) override;
  void OnReconnecting() override;
  void OnNotConnected(int code, const std::string& why) override;
  void OnRetrying(std::size_t files, int pauseMs, const std::string& why) override;

 private:
  void Notice(std::int32_t kind, std::int32_t value, const std::string& text) const;

  kqft_callbacks m_callbacks = {};  // used by the operation that runs
  mutable std::mutex m_mutex;
  STransferProgress m_progress;  // guarded by m_mutex
  bool m_bRunning = false;       // guarded by m_mutex
};
