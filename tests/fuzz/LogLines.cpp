// Log lines: a message stands in the log as it was given, whatever it holds.
//
// Input: messages.

#include "Fuzz.h"
#include "client/KQFileTransServiceClient.h"
#include "platform/LogFile.h"
#include "server/KQFileTransServiceServer.h"
#include "session/TransClient.h"

namespace {

struct SClient : CKQFileTransServiceClient {
  explicit SClient(const std::string& directory) {
    m_strLogDir = directory;
    CreateLogFile();
  }
  using CKQFileTransServiceClient::WriteLog, CKQFileTransServiceClient::m_strLogPath;
};

struct SServer : CKQFileTransServiceServer {
  explicit SServer(const std::string& directory) { SetLog(directory, true); }
  using CKQFileTransServiceServer::WriteLog, CKQFileTransServiceServer::m_strLogFile;
};

struct SSession : CTransClient {
  explicit SSession(const std::string& directory) : CTransClient(nullptr, 7, 9) {
    SetLog(directory);
  }
  using CTransClient::WriteLog, CTransClient::m_strLogFile;
};

constexpr std::size_t kTimeBytes = 19;  // of "2026-01-31_23-59-59"

void CheckLog(const std::string& path, const std::vector<std::string>& messages) {
  const std::string log = ReadWholeFile(path);
  std::size_t at = 0;
  for (const std::string& message : messages) {
    Require(log.compare(at + kTimeBytes, 2 + message.size(), ": " + message) == 0);
    at += kTimeBytes + 2 + message.size();
  }
  Require(at == log.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > kLogFileLimitBytes / 2) return 0;  // a second file would begin
  CJail jail;
  SClient client(jail.Root());
  SServer server(jail.Root());
  SSession session(jail.Root());
  std::vector<std::string> messages;
  for (CFuzzInput input(data, size); !input.AtEnd();) {
    messages.push_back(input.TakeText());
    client.WriteLog(messages.back());
    server.WriteLog(messages.back());
    session.WriteLog(messages.back());
  }
  CheckLog(client.m_strLogPath, messages);
  CheckLog(server.m_strLogFile, messages);
  CheckLog(session.m_strLogFile, messages);
  return 0;
}
