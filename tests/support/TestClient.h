#pragma once

#include <string>
#include <vector>

#include "client/KQFileTransServiceClient.h"
#include "platform/KQEvent.h"
#include "support/FakeServer.h"
#include "support/TestSystem.h"

/// A client with its protected side open, its logs and files in directories
/// of its own.
class CTestClient : public CKQFileTransServiceClient {
 public:
  CTestClient() { Init(m_logs.Path()); }
  explicit CTestClient(CFakeServer& server) : CTestClient() {
    Connect("127.0.0.1", server.Port());
    SetPrjDir(m_files.Path());
  }
  ~CTestClient() override { Stop(); }

  using CKQFileTransServiceClient::CloseFile;
  using CKQFileTransServiceClient::CreateLogFile;
  using CKQFileTransServiceClient::GetIOCPBuffer;
  using CKQFileTransServiceClient::m_bConnect;
  using CKQFileTransServiceClient::m_bStop;
  using CKQFileTransServiceClient::m_bStopReceive;
  using CKQFileTransServiceClient::m_bWriting;
  using CKQFileTransServiceClient::m_evFileEnd;
  using CKQFileTransServiceClient::m_evReply;
  using CKQFileTransServiceClient::m_evTransEnd;
  using CKQFileTransServiceClient::m_llServerFilePos;
  using CKQFileTransServiceClient::m_llTransBytes;
  using CKQFileTransServiceClient::m_mapBuffer;
  using CKQFileTransServiceClient::m_nBufReleased;
  using CKQFileTransServiceClient::m_nBufTaken;
  using CKQFileTransServiceClient::m_nErrorCode;
  using CKQFileTransServiceClient::m_nServerErrorCode;
  using CKQFileTransServiceClient::m_nTransState;
  using CKQFileTransServiceClient::m_pLinkInfo;
  using CKQFileTransServiceClient::m_strLogPath;
  using CKQFileTransServiceClient::m_strLostInfo;
  using CKQFileTransServiceClient::m_strPrjDir;
  using CKQFileTransServiceClient::m_TotalTransBytes;
  using CKQFileTransServiceClient::PrepareTransFile;
  using CKQFileTransServiceClient::ReleaseBuffer;
  using CKQFileTransServiceClient::SendAndWaitPre;
  using CKQFileTransServiceClient::SendData;
  using CKQFileTransServiceClient::SendMessage;
  using CKQFileTransServiceClient::StopReceiveData;
  using CKQFileTransServiceClient::WriteLog;

  /// Delivers a message as the network would, from memory that ends with it.
  void Deliver(int code, const std::string& body = "");

  /// Creates a local file and returns its path.
  std::string File(const std::string& name, const std::string& content);

  /// A request for files of this client's directory under the same names.
  std::string Request(const std::vector<std::string>& names, bool download = false) const;

  /// Uploads, waits for the end, and returns the statuses.
  std::vector<int> Upload(const std::vector<std::string>& names);
  std::vector<int> Download(const std::vector<std::string>& names);
  bool WaitFinished() const;
  std::vector<int> Statuses();

  /// All log lines so far without their times, in the order of the files.
  std::string Log() const;

  CTempDirectory m_logs;
  CTempDirectory m_files;
};
