#pragma once

#include <chrono>
#include <string>
#include <thread>

#include "net/NetWorkManageEx.h"
#include "platform/ThreadLock.h"
#include "server/KQFileTransServiceServer.h"
#include "support/TestSystem.h"

/// A real server on a free port of 127.0.0.0/8 whose projects and session
/// logs lie in a directory of the test.
class CLoopbackServer : public CKQFileTransServiceServer {
 public:
  explicit CLoopbackServer(const CTempDirectory& directory) {
    SetLog(directory.Path(), false);
    SetPrjDir(directory.Path());
    Init(0);
  }
  ~CLoopbackServer() override { Stop(); }

  int Port() const { return m_pPrimaryNetWork->GetListenPort(); }
  std::size_t Links() const { return m_pPrimaryNetWork->GetAllLinkInfo().size(); }
  std::size_t Sessions() const {
    const CScopedLock lock(m_pClientLock);
    return m_mapClient.size();
  }
};

/// Waits, at most 60 s, until the condition holds.
template <typename Condition>
bool WaitUntil(Condition condition) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}
