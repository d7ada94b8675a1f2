#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "client/KQFileTransServiceClient.h"
#include "net/NetWorkManageEx.h"
#include "platform/KQEvent.h"
#include "support/FakeServer.h"
#include "support/TestSystem.h"

/// A client with its protected side open, its logs and files in directories
/// of its own.
class CTestClient : public CKQFileTransServiceClient {
  using Base = CKQFileTransServiceClient;

 public:
  /// @param port to connect to on 127.0.0.1; 0 for none
  /// @param from the address that the server sees; "" for any
  explicit CTestClient(int port = 0, const std::string& from = "");
  ~CTestClient() override { Stop(); }

  using Base::CloseFile, Base::GetIOCPBuffer, Base::PrepareTransFile, Base::ReleaseBuffer;
  using Base::m_bConnect, Base::m_bStop, Base::m_bStopReceive, Base::m_bWriting;
  using Base::m_evFileEnd, Base::m_evReply, Base::m_evTransEnd, Base::m_pLinkInfo;
  using Base::m_llServerFilePos, Base::m_llTransBytes, Base::m_TotalTransBytes;
  using Base::m_mapBuffer, Base::m_nBufReleased, Base::m_nBufTaken;
  using Base::m_nErrorCode, Base::m_pFile, Base::m_nServerErrorCode, Base::m_nTransState;
  using Base::m_strLogPath, Base::m_strLostInfo, Base::m_strPrjDir;
  using Base::ReceiveFile, Base::SendFile;
  using Base::SendData, Base::SendMessage, Base::StopReceiveData, Base::WriteLog;

  /// Delivers a message as the network would, from memory that ends with it.
  void Deliver(int code, const std::string& body = "");

  /// Creates a local file and returns its path.
  std::string File(const std::string& name, const std::string& content);

  /// Start a transfer of files of this client's directory, that the server
  /// knows by `remote` + name; 1 or its code.
  int StartUpload(const std::vector<std::string>& names, const std::string& remote = "");
  int StartDownload(const std::vector<std::string>& names, const std::string& remote = "");

  /// Wait for the end of a transfer and return the statuses, or the code of
  /// the start alone.
  std::vector<int> Finish(int startResult = 1);
  std::vector<int> Upload(const std::vector<std::string>& names, const std::string& remote = "") {
    return Finish(StartUpload(names, remote));
  }
  std::vector<int> Download(const std::vector<std::string>& names) {
    return Finish(StartDownload(names));
  }

  /// All log lines so far, without their times.
  std::string Log() const;

  CTempDirectory m_logs;
  CTempDirectory m_files;
};

/// A test of the client against a scripted server. It stops the server in its
/// end when plans refer to what dies with the test.
class CClientTest : public testing::Test {
 protected:
  CClientTest() { EXPECT_TRUE(m_server.WaitFor(1)); }  // the link is up on both sides

  CScopedSystem m_system;
  CFakeServer m_server;
  CTestClient m_client{m_server.Port()};
};
