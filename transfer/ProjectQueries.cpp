// The project client and its questions; put and get lie in files of their own.

#include <algorithm>
#include <filesystem>
#include <utility>

#include "platform/PathBytes.h"
#include "protocol/ResultCodes.h"
#include "transfer/Bandwidth.h"
#include "transfer/Names.h"
#include "transfer/ProjectClientState.h"
#include "transfer/ProjectPath.h"
#include "transfer/ProjectTree.h"
#include "transfer/ServerInventory.h"

namespace {

// As the library wants it: something that its file names can stand behind.
SServerPlace WithLogDirectory(SServerPlace place) {
  std::string& directory = place.m_strLogDirectory;
  std::error_code error;
  if (directory.empty()) directory = BytesOf(std::filesystem::temp_directory_path(error));
  if (!directory.empty() && directory.back() != '/' && directory.back() != '\\') directory += '/';
  return place;
}

ITransferObserver& ObserverOr(ITransferObserver* observer) {
  static ITransferObserver nobody;
  return observer != nullptr ? *observer : nobody;
}

bool IsBelow(const std::string& full, const std::string& path) {
  return full.size() > path.size() + 1 && full.compare(0, path.size(), path) == 0 &&
         (full[path.size()] == '\\' || full[path.size()] == '/');
}

// The server's short names leave out directories deep down; its full names
// do not.
std::string NameBelowProject(const Channel_Key_Value& file, const std::string& projectPath) {
  if (IsBelow(file.m_strName, projectPath)) return file.m_strName.substr(projectPath.size() + 1);
  const std::size_t separator = file.m_strPath.find_first_of("\\/");
  return separator == std::string::npos ? file.m_strPath : file.m_strPath.substr(separator + 1);
}

// What the inventory tells of each; of the others, how long they are.
int AddFacts(CSession& session, const CInventory& inventory, std::vector<SProjectFile>& files) {
  std::vector<SProjectFile*> others;
  std::vector<std::string> names;
  for (SProjectFile& file : files) {
    const SInventoryEntry* const entry = inventory.Find(file.m_strName);
    if (entry != nullptr) {
      file.m_llSize = entry->m_facts.m_llSize;
      file.m_llTime = entry->m_facts.m_llTime;
      if (entry->m_bDigest) file.m_strDigest = DigestText(entry->m_digest.m_whole);
    } else if (IsAskable(file.m_strServer)) {
      others.push_back(&file);
      names.push_back(file.m_strServer);
    }
  }
  std::vector<std::int64_t> sizes;
  const int result = session.AskSizes(names, sizes);
  for (std::size_t i = 0; i < sizes.size(); ++i) others[i]->m_llSize = sizes[i];
  return result;
}

}  // namespace

std::string DescribeResult(int result) {
  if (result == kRequestUnknown) {
    return "the server does not know this request: it may be older (-100)";
  }
  if (result == kDeleteRefused) return "refused: the server deletes no projects (-110)";
  if (result == kServerTaken) return "another program of this user is busy with it (-101)";
  const std::string name = ResultName(result);
  std::string meaning = ResultMeaning(result);
  if (result == CREATE_FILE_ERROR) meaning += "; another workstation may be writing it";
  return meaning + " (" + std::to_string(result) + (name.empty() ? "" : " " + name) + ")";
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

std::string CProjectClient::WhyNotConnected() const {
  return m_pState->m_pSession->Describe(ERROR_CODE_CLIENT_CONNECT);
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

int AskFileNames(CSession& session, const std::string& directory, const std::string& below,
                 std::vector<SProjectFile>& files) {
  std::vector<Channel_Key_Value> records;
  const int result = session.AskFiles(below, records);
  if (result != RESULT_OK) return result;
  files.clear();
  // Of a directory nothing else is wanted than what lies below it.
  const bool isDirectory = below.find('\\') != std::string::npos;
  const std::string path = directory + below;
  for (const Channel_Key_Value& record : records) {
    if (isDirectory && !IsBelow(record.m_strName, path)) continue;
    std::string name = NameBelowProject(record, path);
    std::replace(name.begin(), name.end(), '\\', '/');
    SProjectFile& file = files.emplace_back();
    file.m_strName = std::move(name);
    file.m_strServer = record.m_strName;
  }
  return RESULT_OK;
}

int CProjectClient::ListFiles(const std::string& project, std::vector<SProjectFile>& files) {
  std::string directory;
  int result = GetDirectory(directory);
  if (result != RESULT_OK) return result;
  result = AskFileNames(*m_pState->m_pSession, directory, project, files);
  files.erase(std::remove_if(files.begin(), files.end(),
                             [](const SProjectFile& file) { return IsOwnFile(file.m_strName); }),
              files.end());
  return result;
}

int CProjectClient::ListAllFiles(const std::string& project, SFileList& list) {
  const CCancelToken::CScope running(m_pState->m_cancel);
  CSession& session = *m_pState->m_pSession;
  const STransferTools tools{session, m_pState->m_observer, m_pState->m_cancel, 0};
  std::string directory;
  int result = GetDirectory(directory);
  if (result != RESULT_OK) return result;
  CServerInventory inventory(tools, directory + project);
  result = inventory.Read();
  SProjectTree tree;
  if (result == RESULT_OK) result = AskProjectTree(tools, directory, project, inventory, tree);
  if (result != RESULT_OK) return result;
  list.m_bComplete = tree.m_nLeftOut == 0;
  list.m_strMayHide = tree.m_strMayHide;
  list.m_vecFiles = std::move(tree.m_vecFiles);
  return AddFacts(session, inventory.Newest(), list.m_vecFiles);
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

std::string CProjectClient::WhyNoBandwidth(const std::string& bandwidth) {
  std::vector<SBandwidthStep> ignored;
  return CBandwidth::Parse(bandwidth, ignored);
}
