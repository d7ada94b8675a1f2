#pragma once

#include <gtest/gtest.h>

#include "net/NetWorkManageEx.h"
#include "platform/ThreadLock.h"
#include "server/KQFileTransServiceServer.h"
#include "session/TransClient.h"
#include "support/TestSystem.h"

/// A server with its inside open. Its projects and the logs of its sessions
/// lie in a directory of the test; Init(0) makes it listen.
class CTestServer : public CKQFileTransServiceServer {
  using Base = CKQFileTransServiceServer;

 public:
  explicit CTestServer(const CTempDirectory& directory) {
    SetPrjDir(directory.Path());
    SetLog(directory.Path(), false);
  }
  ~CTestServer() override { Stop(); }

  int Port() const { return m_pPrimaryNetWork->GetListenPort(); }
  std::size_t Links() const { return m_pPrimaryNetWork->GetAllLinkInfo().size(); }
  std::size_t Sessions() const {
    const CScopedLock lock(m_pClientLock);
    return m_mapClient.size();
  }

  using Base::AddClientManage, Base::GetClientManage, Base::RemoveAllClient;
  using Base::m_mapClient, Base::m_pClientLock, Base::m_strLogFile, Base::RemoveClientManage,
      Base::WriteLog;
};

/// A test of the server, on test time.
class CServerTest : public testing::Test {
 protected:
  CScopedSystem m_system{CFaultPlan().ClockFaster(20)};
  CTempDirectory m_dir;
  CTestServer m_server{m_dir};
};
