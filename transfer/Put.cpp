// Put: what of this machine becomes which files of the server.

#include <algorithm>
#include <filesystem>
#include <set>

#include "platform/PathBytes.h"
#include "protocol/ResultCodes.h"
#include "transfer/CancelToken.h"
#include "transfer/Insist.h"
#include "transfer/LocalFiles.h"
#include "transfer/Names.h"
#include "transfer/ProjectClientState.h"
#include "transfer/PutInventories.h"
#include "transfer/PutPlan.h"
#include "transfer/SendingNote.h"
#include "transfer/Upload.h"

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kLongestServerName = 1023;

// The project that a path becomes.
std::string ProjectOf(const std::string& path, const SPutRequest& request) {
  if (!request.m_strProject.empty()) return request.m_strProject;
  std::error_code error;
  const fs::path top = fs::canonical(PathOf(path), error);
  return fs::is_directory(top, error) ? BytesOf(top.filename()) : "";
}

bool HasNames(const SPutRequest& request) {
  return request.m_bOnlyFiles || !request.m_vecFiles.empty();
}

STransferItem MakeItem(const SLocalFile& file, const std::string& serverDirectory,
                       const std::string& project, std::set<std::string>& taken) {
  STransferItem item;
  const std::string below = JoinForServer(file.m_vecComponents);
  item.m_strLocal = file.m_strPath;
  item.m_strServer = serverDirectory + project + "\\" + below;
  item.m_strShown = project + "\\" + below;
  std::replace(item.m_strShown.begin(), item.m_strShown.end(), '\\', '/');
  item.m_llSize = file.m_facts.m_llSize;
  item.m_strWhy = file.m_strWhyNot;
  if (item.m_strServer.size() > kLongestServerName) item.m_strWhy = "the name is too long";
  if (!taken.insert(item.m_strServer).second) item.m_strWhy = "another file has the same name";
  item.m_bFinal = !item.m_strWhy.empty();
  return item;
}

// @return the facts of each item, as they were when it was found
std::vector<SFileFacts> FindItems(const SPutRequest& request, const std::string& serverDirectory,
                                  CEarlyLook& early, ITransferObserver& observer,
                                  STransferResult& put) {
  std::vector<SFileFacts> facts;
  std::set<std::string> taken;
  for (const std::string& path : request.m_vecPaths) {
    SLocalFiles found;
    if (HasNames(request)) {
      CollectNamedFiles(path, request.m_vecFiles, request.m_filter, found);
    } else {
      found = early.Take(path, request.m_filter);
    }
    put.m_nFiltered += found.m_nFiltered;
    const auto isLater = [&request](const std::string& file) {
      return request.m_whyLater && !request.m_whyLater(file).empty();
    };
    for (const SLeftOut& left : found.m_vecLeftOut) {
      if (isLater(left.m_strPath)) continue;
      observer.OnLeftOut(left);
      if (left.m_bProblem) ++put.m_nProblems;
    }
    const std::string project = ProjectOf(path, request);
    if (request.m_vecPaths.size() == 1 || !request.m_strProject.empty()) put.m_strProject = project;
    for (const SLocalFile& file : found.m_vecFiles) {
      if (isLater(file.m_strPath)) continue;
      put.m_vecItems.push_back(MakeItem(file, serverDirectory, project, taken));
      facts.push_back(file.m_facts);
    }
  }
  return facts;
}

bool AreDirectories(const std::vector<std::string>& paths) {
  std::error_code error;
  return std::all_of(paths.begin(), paths.end(), [&](const std::string& path) {
    return fs::is_directory(PathOf(path), error);
  });
}

void FindUnlisted(CSession& session, const std::vector<std::string>& projects,
                  STransferResult& put) {
  std::vector<Channel_Key_Value> listed;
  if (session.AwaitProjects(listed) != RESULT_OK) return;
  for (const std::string& project : projects) {
    if (std::none_of(listed.begin(), listed.end(),
                     [&](const Channel_Key_Value& record) { return record.m_strPath == project; }))
      put.m_vecUnlisted.push_back(project);
  }
}

/// One put, once its files are known.
class CPut {
 public:
  CPut(CProjectClient::SState& state, const SPutRequest& request, const std::string& directory,
       STransferResult& put)
      : m_state(state),
        m_request(request),
        m_put(put),
        m_sending(m_tools, directory, put.m_vecItems, state.m_turn.Workstation()),
        m_inventories(m_tools, directory, put.m_vecItems,
                      HasNames(request) || !request.m_filter.IsEmpty()),
        m_plan(m_tools, {request.m_bWhole, request.m_bChecksum, request.m_bPlanOnly},
               m_inventories) {}

  // Returns why nothing was sent, "" when it was tried.
  // @param facts of the items, as they were when they were found
  std::string Run(const std::vector<SFileFacts>& facts) {
    std::string why;
    const auto ahead = [this] { AskAhead(CPutPlan::Asked(m_put.m_vecItems)); };
    if (IsNoted()) why = m_sending.Begin(m_request.m_bTakeOver, ahead);
    if (why.empty() && m_request.m_bInventory) why = m_inventories.Read();
    if (why.empty()) {
      const int result = m_plan.Make(m_put.m_vecItems, facts);
      if (result != RESULT_OK) why = "cannot ask what the server has: " + DescribeResult(result);
    }
    if (m_request.m_bInventory && !HasNames(m_request) && AreDirectories(m_request.m_vecPaths)) {
      m_put.m_nOnlyThere = m_inventories.CountOnlyThere(m_request.m_filter);
    }
    if (why.empty() && !m_request.m_bPlanOnly) why = Send();
    End();
    return why;
  }

 private:
  // All that is left goes out at once; then nothing is waited for but the answers.
  void End() {
    CSession& session = *m_state.m_pSession;
    const std::vector<std::string> newProjects = m_sending.NewProjects();
    // The server walks over all of them: it is asked only once a project.
    const bool asks = m_bEndWritten && m_put.IsDone() && !newProjects.empty();
    if (asks) session.AskProjectsLater();
    m_sending.End();
    m_put.m_strOther = m_sending.Other();
    session.LeaveLater(m_sending.LastUsed().empty() ? m_strLastSent : m_sending.LastUsed());
    if (asks) FindUnlisted(session, newProjects, m_put);
    session.AwaitAllStored();
    session.Stop();
  }

  void AskAhead(const std::vector<std::string>& expected) {
    m_state.m_pSession->AskAhead(m_inventories.Asked(), expected);
  }

  // Others are to know who is sending.
  bool IsNoted() const { return m_request.m_bInventory && !m_request.m_bPlanOnly; }

  std::string Send() {
    std::string why;
    if (!m_state.m_cancel.IsCancelled()) {
      why = EmptyRecordings();
      if (why.empty() && m_request.m_bInventory) why = m_inventories.WritePlanned(m_plan.Ways());
    }
    CUpload upload(
        m_tools, m_put.m_vecItems, m_plan.Ways(), m_request.m_bInventory,
        [this](bool now) { m_inventories.WriteBetween(now); }, m_request.m_whyLater);
    if (why.empty()) {
      upload.Run(m_put.m_vecItems);
      // Who wants to end does not wait for another connection.
      const bool canWrite = upload.IsLinkClean() && m_state.m_pSession->IsConnect();
      if (!canWrite) m_state.m_pSession->Abort();
      if (m_request.m_bInventory && (canWrite || !m_state.m_cancel.IsCancelled())) {
        AskAhead({});
        why = m_sending.LookLast();
        if (why.empty()) WriteEnd();
      }
    }
    m_strLastSent = upload.LastSent();
    return why;
  }

  // Until one is empty nothing is said of its bytes; from then on they are the
  // beginning of any version.
  std::string EmptyRecordings() {
    std::vector<STransferItem*> emptied;
    for (STransferItem& item : m_put.m_vecItems) {
      const auto way = m_plan.Ways().find(&item);
      if (way == m_plan.Ways().end() || !way->second.m_bEmpty) continue;
      way->second.m_bMixed = true;
      emptied.push_back(&item);
    }
    if (!emptied.empty() && m_request.m_bInventory) {
      std::string why = m_inventories.WritePlanned(m_plan.Ways());
      if (!why.empty()) return why;
    }
    for (STransferItem* const item : emptied) Empty(*item);
    return "";
  }

  void Empty(STransferItem& item) {
    const int result =
        Insist(m_tools, [&] { return m_state.m_pSession->EmptyFile(item.m_strServer); });
    SPutWay& way = m_plan.Ways().at(&item);
    way.m_bBegun = result == RESULT_OK;
    way.m_bMixed = !way.m_bBegun;
    if (way.m_bBegun) return;
    item.m_bFinal = true;
    item.m_nCode = result;
    item.m_strWhy = DescribeResult(result);
  }

  void WriteEnd() {
    m_put.m_strInventory = m_inventories.WriteComplete();
    if (m_put.m_strInventory.empty()) m_inventories.EndHealing(m_put);
    m_bEndWritten = true;
  }

  CProjectClient::SState& m_state;
  const SPutRequest& m_request;
  STransferResult& m_put;
  std::string m_strLastSent;
  bool m_bEndWritten = false;  // what was sent is in the inventories
  const STransferTools m_tools{
      *m_state.m_pSession,       m_state.m_observer,
      m_state.m_cancel,          m_request.m_nRetries,
      m_request.m_nRetrySeconds, [this] { return !IsNoted() || m_sending.Look().empty(); }};
  CPutSending m_sending;
  CPutInventories m_inventories;
  CPutPlan m_plan;
};

}  // namespace

void CProjectClient::LookAhead(const SPutRequest& request) {
  if (!HasNames(request) && request.m_filter.IsEmpty()) {
    m_pState->m_early.Begin(request.m_vecPaths);
  }
}

STransferResult CProjectClient::Put(const SPutRequest& request) {
  if (!request.m_vecPaths.empty()) {
    m_pState->m_pSession->ChooseServer(ProjectOf(request.m_vecPaths.front(), request));
  }
  CTransferScope scope(*m_pState, WhyNoPut(request), {request.m_nRetries, request.m_nRetrySeconds});
  STransferResult& put = scope.Result();
  if (!scope.HasBegun()) return scope.End();
  std::string directory;
  if (!scope.Check(m_pState->m_pSession->AskDirectory(directory))) return scope.End();
  if (directory.empty()) return scope.Refuse("the server has no project directory");
  const std::vector<SFileFacts> facts =
      FindItems(request, directory, m_pState->m_early, m_pState->m_observer, put);
  const std::string why = CPut(*m_pState, request, directory, put).Run(facts);
  return why.empty() ? scope.End() : scope.Refuse(why);
}

std::string CProjectClient::WhyNoPut(const SPutRequest& request) {
  std::error_code error;
  if (HasNames(request) && (request.m_vecPaths.size() != 1 ||
                            !fs::is_directory(PathOf(request.m_vecPaths.front()), error))) {
    return "names of files are those below one directory";
  }
  for (const std::string& path : request.m_vecPaths) {
    if (!fs::exists(PathOf(path), error)) return path + ": no such file or directory";
    const std::string project = ProjectOf(path, request);
    std::string problem = path;
    if (project.empty()) return problem.append(": a single file needs the name of a project");
    if (const std::string why = WhyNoProject(project); !why.empty()) {
      return problem.append(": cannot become a project: " + why);
    }
  }
  return "";
}
