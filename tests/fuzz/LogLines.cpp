// Log lines: a message stands in the log as it was given, whatever it holds.
//
// Input: messages.

#include <filesystem>

#include "Fuzz.h"
#include "client/KQFileTransServiceClient.h"
#include "platform/LogFile.h"
#include "server/KQFileTransServiceServer.h"

namespace {

struct SClient : CKQFileTransServiceClient {
  explicit SClient(const std::string& directory) {
    m_strLogDir = directory;
    CreateLogFile();
  }
  using CKQFileTransServiceClient::WriteLog;
};

struct SServer : CKQFileTransServiceServer {
  using CKQFileTransServiceServer::WriteLog;
};

constexpr std::size_t kTimeBytes = 19;  // of "2026-01-31_23-59-59"

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > kLogFileLimitBytes / 2) return 0;  // a second file would begin
  CJail jail;
  SClient client(jail.Root());
  SServer server;
  server.SetLog(jail.Root(), true);
  std::vector<std::string> messages;
  for (CFuzzInput input(data, size); !input.AtEnd();) {
    messages.push_back(input.TakeText());
    client.WriteLog(messages.back());
    server.WriteLog(messages.back());
  }
  int logs = 0;
  for (const auto& file : std::filesystem::directory_iterator(jail.Root())) {
    const std::string log = ReadWholeFile(file.path().string());
    std::size_t at = 0;
    for (const std::string& message : messages) {
      Require(log.compare(at + kTimeBytes, 2 + message.size(), ": " + message) == 0);
      at += kTimeBytes + 2 + message.size();
    }
    Require(at == log.size() && ++logs <= 2);
  }
  Require(logs == 2);
  return 0;
}
