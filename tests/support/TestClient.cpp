// A client as tests drive it.

#include "support/TestClient.h"

#include <filesystem>

namespace {

std::string Request(const std::vector<std::string>& names, const std::string& remote,
                    const std::string& local) {
  std::vector<Channel_Key_Value> records(names.size());
  for (std::size_t i = 0; i < names.size(); ++i) {
    records[i].m_strName = remote + names[i];
    records[i].m_strPath = local + names[i];
  }
  return PrintRecords(records);
}

}  // namespace

CTestClient::CTestClient(int port, const std::string& from) {
  m_pNetWork->SetLocalAddress(from);
  Init(m_logs.Path());
  if (port == 0) return;
  SetPrjDir(m_files.Path());
  EXPECT_TRUE(Connect("127.0.0.1", port));
}

void CTestClient::Deliver(int code, const std::string& body) {
  const std::vector<char> exact(body.begin(), body.end());
  DealNetMsg(0, 0, code, static_cast<int>(exact.size()), exact.data(), 0);
}

std::string CTestClient::File(const std::string& name, const std::string& content) {
  WriteWholeFile(m_files / name, content);
  return m_files / name;
}

int CTestClient::StartUpload(const std::vector<std::string>& names, const std::string& remote) {
  return UpdateFileToDataService(Request(names, remote, m_files.Path()));
}

int CTestClient::StartDownload(const std::vector<std::string>& names, const std::string& remote) {
  return DownFileFromDataService(Request(names, remote, ""));
}

std::vector<int> CTestClient::Finish(int startResult) {
  if (startResult != 1) return {startResult};
  EXPECT_TRUE(WaitUntil([this] { return IsTransFinished(); }));
  std::string xml;
  GetAllTransFileStatus(xml);
  std::vector<int> statuses;
  for (const Channel_Key_Value& rec : ParseRecords(xml)) statuses.push_back(rec.m_nStatus);
  return statuses;
}

std::string CTestClient::Log() const {
  std::string text;
  for (const auto& entry : std::filesystem::directory_iterator(m_logs.Path())) {
    text += ReadWholeFile(entry.path().string());
  }
  return WithoutTimes(text);
}
