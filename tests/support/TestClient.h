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
  using Base = CKQFileTransServiceClient;

 public:
  CTestClient() { Init(m_logs.Path()); }
  explicit CTestClient(CFakeServer& server);
  ~CTestClient() override { Stop(); }

  using Base::CloseFile, Base::GetIOCPBuffer, Base::PrepareTransFile, Base::ReleaseBuffer;
  using Base::m_bConnect, Base::m_bStop, Base::m_bStopReceive, Base::m_bWriting;
  using Base::m_evFileEnd, Base::m_evReply, Base::m_evTransEnd, Base::m_pLinkInfo;
  using Base::m_llServerFilePos, Base::m_llTransBytes, Base::m_TotalTransBytes;
  using Base::m_mapBuffer, Base::m_nBufReleased, Base::m_nBufTaken;
  using Base::m_nErrorCode, Base::m_nServerErrorCode, Base::m_nTransState;
  using Base::m_strLogPath, Base::m_strLostInfo, Base::m_strPrjDir;
  using Base::SendData, Base::SendMessage, Base::StopReceiveData, Base::WriteLog;

  /// Delivers a message as the network would, from memory that ends with it.
  void Deliver(int code, const std::string& body = "");

  /// Creates a local file and returns its path.
  std::string File(const std::string& name, const std::string& content);

  /// Start a transfer of files of this client's directory; 1 or its code.
  int StartUpload(const std::vector<std::string>& names);
  int StartDownload(const std::vector<std::string>& names);

  /// Transfer files and return the statuses, or the code of the start alone.
  std::vector<int> Upload(const std::vector<std::string>& names);
  std::vector<int> Download(const std::vector<std::string>& names);
  std::vector<int> Finish(int startResult = 1);

  /// All log lines so far, without their times.
  std::string Log() const;

  CTempDirectory m_logs;
  CTempDirectory m_files;
};
