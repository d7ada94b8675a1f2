#pragma once

#include <memory>
#include <string>

#include "programs/kqft-status/Watcher.h"

/// Answers requests for the page and what stands beside it, and no others.
class CWebServer {
 public:
  /// @param watcher outlives this
  explicit CWebServer(const CWatcher& watcher);
  CWebServer(const CWebServer&) = delete;
  CWebServer& operator=(const CWebServer&) = delete;
  ~CWebServer();

  /// @param port 0: any free one
  /// @return the port, 0 when it is not to be had
  int Bind(const std::string& address, int port);

  /// Answers from here on, on threads of its own. @return false without one
  bool Start();

  /// Blocks: until the requests in hand are answered.
  void Stop();

 private:
  struct SState;
  const std::unique_ptr<SState> m_pState;
};
