// Put: what of this machine becomes which files of the server.

#include <algorithm>
#include <filesystem>
#include <set>

#include "protocol/ResultCodes.h"
#include "transfer/CancelToken.h"
#include "transfer/LocalFiles.h"
#include "transfer/Names.h"
#include "transfer/ProjectClientState.h"
#include "transfer/SendingNote.h"
#include "transfer/ServerInventory.h"
#include "transfer/Upload.h"

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kLongestServerName = 1023;

// The project that a path becomes.
std::string ProjectOf(const std::string& path, const SPutRequest& request) {
  if (!request.m_strProject.empty()) return request.m_strProject;
  std::error_code error;
  const fs::path top = fs::canonical(path, error);
  return fs::is_directory(top, error) ? top.filename().string() : "";
}

STransferItem MakeItem(const SLocalFile& file, const std::string& serverDirectory,
                       const std::string& project, std::set<std::string>& taken) {
  STransferItem item;
  const std::string below = JoinForServer(file.m_vecComponents);
  item.m_strLocal = file.m_strPath;
  item.m_strServer = serverDirectory + project + "\\" + below;
  item.m_strShown = project + "\\" + below;
  std::replace(item.m_strShown.begin(), item.m_strShown.end(), '\\', '/');
  item.m_llSize = file.m_llSize;
  item.m_strWhy = file.m_strWhyNot;
  if (item.m_strServer.size() > kLongestServerName) item.m_strWhy = "the name is too long";
  if (!taken.insert(item.m_strServer).second) item.m_strWhy = "another file has the same name";
  item.m_bFinal = !item.m_strWhy.empty();
  return item;
}

void FindItems(const SPutRequest& request, const std::string& serverDirectory,
               ITransferObserver& observer, STransferResult& put) {
  std::set<std::string> taken;
  for (const std::string& path : request.m_vecPaths) {
    SLocalFiles found;
    CollectFiles(path, found);
    for (const SLeftOut& left : found.m_vecLeftOut) {
      observer.OnLeftOut(left);
      if (left.m_bProblem) ++put.m_nProblems;
    }
    const std::string project = ProjectOf(path, request);
    if (request.m_vecPaths.size() == 1 || !request.m_strProject.empty()) put.m_strProject = project;
    for (const SLocalFile& file : found.m_vecFiles) {
      put.m_vecItems.push_back(MakeItem(file, serverDirectory, project, taken));
    }
  }
}

bool AreAllDone(const std::vector<STransferItem>& items) {
  return std::all_of(items.begin(), items.end(),
                     [](const STransferItem& item) { return item.m_bDone; });
}

// What the server lists is asked only once a project: it walks over all.
void FindUnlisted(CSession& session, const std::vector<std::string>& projects,
                  STransferResult& put) {
  std::vector<Channel_Key_Value> listed;
  if (projects.empty() || session.AskProjects(listed) != RESULT_OK) return;
  for (const std::string& project : projects) {
    if (std::none_of(listed.begin(), listed.end(),
                     [&](const Channel_Key_Value& record) { return record.m_strPath == project; }))
      put.m_vecUnlisted.push_back(project);
  }
}

// Returns why nothing was sent, "" when it was tried.
std::string SendItems(CProjectClient::SState& state, const SPutRequest& request,
                      const std::string& directory, STransferResult& put) {
  STransferTools tools{*state.m_pSession,  state.m_observer,        state.m_cancel,
                       request.m_nRetries, request.m_nRetrySeconds, {}};
  CPutSending sending(tools, directory, put.m_vecItems, state.m_turn.Workstation());
  if (request.m_bInventory) tools.m_mayGoOn = [&sending] { return sending.Look().empty(); };
  CPutInventories inventories(tools, directory, put.m_vecItems);
  CUpload upload(tools, put.m_vecItems, request.m_bInventory);
  std::string why;
  if (request.m_bInventory) why = sending.Begin(request.m_bTakeOver);
  if (request.m_bInventory && why.empty()) why = inventories.Read();
  if (request.m_bInventory && why.empty()) why = inventories.WritePlanned();
  if (why.empty()) {
    upload.Run(put.m_vecItems);
    // Who wants to end does not wait for another connection.
    const bool canWrite = upload.IsLinkClean() && state.m_pSession->IsConnect();
    if (!canWrite) state.m_pSession->Abort();
    if (request.m_bInventory && (canWrite || !state.m_cancel.IsCancelled())) {
      why = sending.LookLast();
      if (why.empty()) put.m_strInventory = inventories.WriteComplete(AreAllDone(put.m_vecItems));
      if (AreAllDone(put.m_vecItems)) FindUnlisted(*state.m_pSession, sending.NewProjects(), put);
    }
  }
  sending.End();
  put.m_strOther = sending.Other();
  const std::string& last = sending.LastUsed().empty() ? upload.LastSent() : sending.LastUsed();
  if (!last.empty() && state.m_pSession->IsConnect()) state.m_pSession->Leave(last);
  state.m_pSession->Stop();
  return why;
}

}  // namespace

STransferResult CProjectClient::Put(const SPutRequest& request) {
  CTransferScope scope(*m_pState, WhyNoPut(request), {request.m_nRetries, request.m_nRetrySeconds});
  STransferResult& put = scope.Result();
  if (!scope.HasBegun()) return scope.End();
  std::string directory;
  if (!scope.Check(m_pState->m_pSession->AskDirectory(directory))) return scope.End();
  if (directory.empty()) return scope.Refuse("the server has no project directory");
  FindItems(request, directory, m_pState->m_observer, put);
  if (request.m_bPlanOnly) {
    scope.Check(PlanUpload(*m_pState->m_pSession, put.m_vecItems));
  } else {
    const std::string why = SendItems(*m_pState, request, directory, put);
    if (!why.empty()) return scope.Refuse(why);
  }
  return scope.End();
}

std::string CProjectClient::WhyNoPut(const SPutRequest& request) {
  for (const std::string& path : request.m_vecPaths) {
    std::error_code error;
    if (!fs::exists(path, error)) return path + ": no such file or directory";
    const std::string project = ProjectOf(path, request);
    std::string problem = path;
    if (project.empty()) return problem.append(": a single file needs the name of a project");
    if (const std::string why = WhyNoProject(project); !why.empty()) {
      return problem.append(": cannot become a project: " + why);
    }
  }
  return "";
}
