#pragma once

#include "net/NetWorkManageEx.h"
#include "server/KQFileTransServiceServer.h"
#include "session/TransClient.h"
#include "support/TestSystem.h"

/// A server on test time with its inside open. Its sessions log into `m_dir`,
/// which is also the project directory.
struct STestServer {
  class CServer : public CKQFileTransServiceServer {
   public:
    ~CServer() override { Stop(); }
    int Port() const { return m_pPrimaryNetWork->GetListenPort(); }
    void DropNetwork() { delete std::exchange(m_pPrimaryNetWork, nullptr); }

    using CKQFileTransServiceServer::AddClientManage;
    using CKQFileTransServiceServer::GetClientManage;
    using CKQFileTransServiceServer::m_mapClient;
    using CKQFileTransServiceServer::m_strLogFile;
    using CKQFileTransServiceServer::RemoveAllClient;
    using CKQFileTransServiceServer::RemoveClientManage;
    using CKQFileTransServiceServer::WriteLog;
  };

  STestServer() {
    m_server.SetPrjDir(m_dir.Path());
    m_server.SetLog(m_dir.Path(), false);
  }

  CScopedSystem m_system{CFaultPlan().ClockFaster(50)};
  CTempDirectory m_dir;
  CServer m_server;
};
