// The project client and its questions; put and get lie in files of their own.

#include <algorithm>
#include <filesystem>
#include <utility>

#include "protocol/ResultCodes.h"
#include "transfer/Names.h"
#include "transfer/ProjectClientState.h"
#include "transfer/ProjectPath.h"

namespace {

// As the library wants it: something that its file names can stand behind.
SServerPlace WithLogDirectory(SServerPlace place) {
  std::string& directory = place.m_strLogDirectory;
  std::error_code error;
  if (directory.empty()) directory = std::filesystem::temp_directory_path(error).string();
  if (!directory.empty() && directory.back() != '/' && directory.back() != '\\') directory += '/';
  return place;
}

ITransferObserver& ObserverOr(ITransferObserver* observer) {
  static ITransferObserver nobody;
  return observer != nullptr ? *observer : nobody;
}

// The server's short names leave out directories deep down; its full names
// do not.
std::string NameBelowProject(const Channel_Key_Value& file, const std::string& projectPath) {
  const std::size_t size = projectPath.size();
  const std::string& full = file.m_strName;
  if (full.size() > size + 1 && full.compare(0, size, projectPath) == 0 &&
      (full[size] == '\\' || full[size] == '/')) {
    return full.substr(size + 1);
  }
  const std::size_t separator = file.m_strPath.find_first_of("\\/");
  return separator == std::string::npos ? file.m_strPath : file.m_strPath.substr(separator + 1);
}

}  // namespace

std::string DescribeResult(int result) {
  if (result == kRequestUnknown) {
    return "the server does not know this request: it may be older (-100)";
  }
  if (result == kServerTaken) return "another program of this user is busy with it (-101)";
  const std::string name = ResultName(result);
  return std::string(ResultMeaning(result)) + " (" + std::to_string(result) +
         (name.empty() ? "" : " " + name) + ")";
}

bool STransferResult::IsDone() const {
  return m_nCode == RESULT_OK && m_nProblems == 0 && m_strInventory.empty() &&
         std::all_of(m_vecItems.begin(), m_vecItems.end(),
                     [](const STransferItem& item) { return item.m_bDone; });
}

CProjectClient::SState::SState(SServerPlace place, ITransferObserver& observer)
    : m_place(std::move(place)),
      m_observer(observer),
      m_turn(m_place),
      m_pSession(std::make_unique<CSession>(m_place, observer)) {}

CProjectClient::CProjectClient(SServerPlace place, ITransferObserver* observer)
    : m_pState(std::make_unique<SState>(WithLogDirectory(std::move(place)), ObserverOr(observer))) {
}

CProjectClient::~CProjectClient() = default;

int CProjectClient::Connect(int retries, int seconds) {
  const CCancelToken::CScope running(m_pState->m_cancel);
  return m_pState->EnsureConnected({retries, seconds});
}

void CProjectClient::Disconnect() {
  m_pState->m_pSession->Stop();
  m_pState->EndTurn();
}

const std::string& CProjectClient::TakenBy() const {
  return m_pState->m_turn.Holder();
}

int CProjectClient::GetDirectory(std::string& directory) {
  const int result = Connect();
  return result == RESULT_OK ? m_pState->m_pSession->AskDirectory(directory) : result;
}

int CProjectClient::ListProjects(std::vector<SProject>& projects) {
  int result = Connect();
  std::vector<Channel_Key_Value> records;
  if (result == RESULT_OK) result = m_pState->m_pSession->AskProjects(records);
  if (result != RESULT_OK) return result;
  projects.clear();
  for (const Channel_Key_Value& record : records) {
    projects.push_back({record.m_strPath, record.m_llSize, record.m_strName});
  }
  return RESULT_OK;
}

int AskProjectFiles(CSession& session, const std::string& directory, const std::string& project,
                    std::vector<SProjectFile>& files) {
  std::vector<Channel_Key_Value> records;
  const int result = session.AskFiles(project, records);
  if (result != RESULT_OK) return result;
  files.clear();
  for (const Channel_Key_Value& record : records) {
    std::string name = NameBelowProject(record, directory + project);
    std::replace(name.begin(), name.end(), '\\', '/');
    if (!IsOwnFile(name)) files.push_back({std::move(name), record.m_strName});
  }
  return RESULT_OK;
}

int CProjectClient::ListFiles(const std::string& project, std::vector<SProjectFile>& files) {
  std::string directory;
  const int result = GetDirectory(directory);
  if (result != RESULT_OK) return result;
  return AskProjectFiles(*m_pState->m_pSession, directory, project, files);
}

// The server says yes to everything, so it is asked afterwards what is left.
int CProjectClient::DeleteProject(const std::string& project, std::size_t& left) {
  if (!WhyNoProject(project).empty()) return 0;
  int result = Connect();
  std::vector<Channel_Key_Value> records;
  if (result == RESULT_OK) result = m_pState->m_pSession->Delete(project);
  if (result == RESULT_OK) result = m_pState->m_pSession->AskFiles(project, records);
  left = records.size();
  return result;
}

void CProjectClient::Cancel() {
  m_pState->m_cancel.Cancel();
}

std::string CProjectClient::WhyNoProject(const std::string& project) {
  return ::WhyNoProject(project);
}
