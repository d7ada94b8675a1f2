#pragma once

#include <string>

#include "programs/kqft/Progress.h"
#include "transfer/TransferObserver.h"

class COutput;

/// Shows on the console what an operation tells.
class CConsoleObserver : public ITransferObserver {
 public:
  CConsoleObserver(COutput& output, const std::string& command);

  void OnLeftOut(const SLeftOut& left) override;
  void OnProgress(const STransferProgress& progress) override;
  void OnWaiting(const std::string& why) override;
  void OnReconnecting() override;
  void OnNotConnected(int code, const std::string& why) override;
  void OnRetrying(std::size_t files, int pauseMs, const std::string& why) override;

  /// Says how far it is; any thread.
  void ShowNow() { m_progress.ShowNow(); }

  /// Takes the progress away.
  void End() { m_progress.End(); }

 private:
  COutput& m_output;
  const std::string m_strCommand;
  CProgress m_progress;
};
