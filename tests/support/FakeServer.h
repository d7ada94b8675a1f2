#pragma once

#include "net/NetWorkManageEx.h"
#include "support/RecordingSink.h"

/// A recorder that listens.
class CRecordingServer : public CRecordingSink {
 public:
  explicit CRecordingServer(int capacity = 100);
  ~CRecordingServer() override { Stop(); }

  /// No plan runs after it: what plans refer to may die.
  void Stop() { m_manager.Stop(); }

  ILinkInfo* Link() const { return m_manager.GetAllLinkInfo().at(0); }
  int Port() const { return m_manager.GetListenPort(); }

  /// Sends on the newest link; closes all links. Both wait for a first one.
  bool Send(int code, const std::string& body = "");
  bool SendTogether(const std::string& packets);
  void Drop();

 protected:
  CNetWorkManageEx m_manager;
};

/// A data server that answers as a test plans. Codes without a plan are
/// answered as by a server that holds nothing and stores everything.
class CFakeServer : public CRecordingServer {
 public:
  CFakeServer();
  ~CFakeServer() override { Stop(); }

  void Answer(int code, const std::string& body);
  void Silent(int code) { On(code, nullptr); }
};
