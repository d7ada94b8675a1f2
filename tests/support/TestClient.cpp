// A client as tests drive it.

#include "support/TestClient.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <regex>
#include <set>
#include <thread>

void CTestClient::Deliver(int code, const std::string& body) {
  const std::vector<char> exact(body.begin(), body.end());
  DealNetMsg(0, 0, code, static_cast<int>(exact.size()), exact.data(), 0);
}

std::string CTestClient::File(const std::string& name, const std::string& content) {
  WriteWholeFile(m_files / name, content);
  return m_files / name;
}

std::string CTestClient::Request(const std::vector<std::string>& names, bool download) const {
  std::vector<Channel_Key_Value> records;
  for (const std::string& name : names) {
    Channel_Key_Value& rec = records.emplace_back();
    rec.m_strName = name;
    rec.m_strPath = download ? name : m_files / name;
  }
  std::string xml;
  Channel_Key_Value::ConverValueToXML(records, xml);
  return xml;
}

std::vector<int> CTestClient::Upload(const std::vector<std::string>& names) {
  const int result = UpdateFileToDataService(Request(names));
  if (result != 1) return {result};
  return WaitFinished() ? Statuses() : std::vector<int>{};
}

std::vector<int> CTestClient::Download(const std::vector<std::string>& names) {
  const int result = DownFileFromDataService(Request(names, true));
  if (result != 1) return {result};
  return WaitFinished() ? Statuses() : std::vector<int>{};
}

bool CTestClient::WaitFinished() const {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (!IsTransFinished() && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return IsTransFinished();
}

std::vector<int> CTestClient::Statuses() {
  std::string xml;
  GetAllTransFileStatus(xml);
  std::vector<Channel_Key_Value> records;
  Channel_Key_Value::ConvertXMLToValue(xml, records);
  std::vector<int> statuses;
  for (const Channel_Key_Value& rec : records) statuses.push_back(rec.m_nStatus);
  return statuses;
}

std::string CTestClient::Log() const {
  std::set<std::filesystem::path> logs;
  for (const auto& entry : std::filesystem::directory_iterator(m_logs.Path())) {
    logs.insert(entry.path());
  }
  std::string text;
  for (const auto& log : logs) text += ReadWholeFile(log.string());
  static const std::regex time("\\d{4}-\\d\\d-\\d\\d_\\d\\d-\\d\\d-\\d\\d: ");
  return std::regex_replace(text, time, "");
}
