// A client as tests drive it.

#include "support/TestClient.h"

#include <chrono>
#include <filesystem>
#include <regex>
#include <thread>

namespace {

std::string Request(const std::vector<std::string>& names, const std::string& directory) {
  std::vector<Channel_Key_Value> records(names.size());
  for (std::size_t i = 0; i < names.size(); ++i) {
    records[i].m_strName = names[i];
    records[i].m_strPath = directory + names[i];
  }
  std::string xml;
  Channel_Key_Value::ConverValueToXML(records, xml);
  return xml;
}

}  // namespace

CTestClient::CTestClient(CFakeServer& server) : CTestClient() {
  Connect("127.0.0.1", server.Port());
  SetPrjDir(m_files.Path());
}

void CTestClient::Deliver(int code, const std::string& body) {
  const std::vector<char> exact(body.begin(), body.end());
  DealNetMsg(0, 0, code, static_cast<int>(exact.size()), exact.data(), 0);
}

std::string CTestClient::File(const std::string& name, const std::string& content) {
  WriteWholeFile(m_files / name, content);
  return m_files / name;
}

int CTestClient::StartUpload(const std::vector<std::string>& names) {
  return UpdateFileToDataService(Request(names, m_files.Path()));
}

int CTestClient::StartDownload(const std::vector<std::string>& names) {
  return DownFileFromDataService(Request(names, ""));
}

std::vector<int> CTestClient::Upload(const std::vector<std::string>& names) {
  return Finish(StartUpload(names));
}

std::vector<int> CTestClient::Download(const std::vector<std::string>& names) {
  return Finish(StartDownload(names));
}

std::vector<int> CTestClient::Finish(int startResult) {
  if (startResult != 1) return {startResult};
  while (!IsTransFinished()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  std::string xml;
  GetAllTransFileStatus(xml);
  std::vector<Channel_Key_Value> records;
  Channel_Key_Value::ConvertXMLToValue(xml, records);
  std::vector<int> statuses;
  for (const Channel_Key_Value& rec : records) statuses.push_back(rec.m_nStatus);
  return statuses;
}

std::string CTestClient::Log() const {
  static const std::regex time("\\d{4}-\\d\\d-\\d\\d_\\d\\d-\\d\\d-\\d\\d: ");
  std::string text;
  for (const auto& entry : std::filesystem::directory_iterator(m_logs.Path())) {
    text += ReadWholeFile(entry.path().string());
  }
  return std::regex_replace(text, time, "");
}
