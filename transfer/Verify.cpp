// Verify: every file of a project is read back from the server and compared by
// its digests, with the inventory and with the files of this machine.

#include "transfer/Verify.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "platform/PathBytes.h"
#include "protocol/MeasurementFiles.h"
#include "protocol/ResultCodes.h"
#include "transfer/CancelToken.h"
#include "transfer/LocalRecording.h"
#include "transfer/Names.h"
#include "transfer/ProjectClientState.h"
#include "transfer/ProjectTree.h"
#include "transfer/Session.h"
#include "transfer/Sizes.h"

namespace fs = std::filesystem;

namespace {

const char* const kNoFiles = "the server lists no files of this project";
const char* const kNoInventory = "it has no whole inventory";
const char* const kLeftOut = "not all of it could be looked into";
const char* const kMeanwhile = "it was sent anew meanwhile; verify it again";

}  // namespace

CVerification::CVerification(const STransferTools& tools, const SVerifyRequest& request,
                             SVerifyResult& result)
    : m_tools(tools), m_request(request), m_result(result) {}

int CVerification::Run(const std::string& directory) {
  const std::string projectPath = directory + m_request.m_strProject;
  CServerInventory inventory(m_tools, projectPath);
  int result = inventory.Read();
  SProjectTree tree;
  if (result == RESULT_OK) {
    result = AskProjectTree(m_tools, directory, m_request.m_strProject, inventory, tree);
  }
  if (result != RESULT_OK) return result;
  m_bInventory = inventory.IsFound();
  m_inventory = inventory.Newest();
  m_result.m_bCompared = m_bInventory || !m_request.m_strLocal.empty();
  m_result.m_nLeftOut = tree.m_nLeftOut;
  if (!m_bInventory) {
    const std::string why = tree.m_vecFiles.empty() ? kNoFiles : kNoInventory;
    m_result.m_strRemark = m_result.m_bCompared ? tree.m_strMayHide : why;
  } else if (!m_inventory.m_head.m_bComplete) {
    m_result.m_strRemark = WhoIsSending(m_inventory.m_head);
  }
  if (!m_result.m_bCompared) return RESULT_OK;
  CollectLocal();
  AddFiles(tree, projectPath);
  result = AskHeld();
  for (auto file = m_mapFiles.begin(); result == RESULT_OK && file != m_mapFiles.end(); ++file) {
    if (m_tools.m_cancel.IsCancelled()) return RESULT_OK;
    result = Compare(file->second);
  }
  Show();
  if (result != RESULT_OK || m_tools.m_cancel.IsCancelled()) return result;
  CServerInventory now(m_tools, projectPath);
  result = now.Read();
  m_result.m_bMeanwhile = now.IsFound() != m_bInventory ||
                          now.Newest().m_head.m_llGeneration != m_inventory.m_head.m_llGeneration;
  if (m_result.m_nLeftOut > 0) m_result.m_strRemark = kLeftOut;
  if (m_result.m_bMeanwhile) m_result.m_strRemark = kMeanwhile;
  return result;
}

void CVerification::CollectLocal() {
  if (m_request.m_strLocal.empty()) return;
  CollectFiles(m_request.m_strLocal, m_request.m_filter, m_local);
  for (const SLeftOut& left : m_local.m_vecLeftOut) {
    m_tools.m_observer.OnLeftOut(left);
    if (left.m_bProblem) ++m_result.m_nLeftOut;
  }
}

void CVerification::AddFiles(const SProjectTree& tree, const std::string& projectPath) {
  for (const SProjectFile& file : PickFiles(m_request.m_filter, tree.m_vecFiles)) {
    SFile& added = m_mapFiles[file.m_strName];
    added.m_strServer = file.m_strServer;
    added.m_pEntry = m_inventory.Find(file.m_strName);
  }
  for (const SLocalFile& file : m_local.m_vecFiles) {
    SFile& added = m_mapFiles[PathBelow(file)];
    added.m_pLocal = &file;
    if (added.m_strServer.empty()) {
      added.m_strServer = projectPath + "\\" + JoinForServer(file.m_vecComponents);
    }
  }
  for (auto& [path, file] : m_mapFiles) file.m_strPath = path;
}

// How long every file is there, and whether a recording has a side file.
int CVerification::AskHeld() {
  std::vector<std::string> names;
  std::vector<SFile*> files, recordings;
  for (auto& [path, file] : m_mapFiles) {
    if (!IsAskable(file.m_strServer)) continue;
    files.push_back(&file);
    names.push_back(file.m_strServer);
    if (IsMeasurementFile(path)) recordings.push_back(&file);
  }
  for (const SFile* file : recordings) {
    names.push_back(SideFileName(file->m_strServer, kRangesExtension));
  }
  std::vector<std::int64_t> sizes;
  const int result = m_tools.m_session.AskSizes(names, sizes);
  if (result != RESULT_OK) return result;
  auto size = sizes.begin();
  for (SFile* file : files) {
    file->m_llHeld = *size++;
    m_progress.m_llTotal =
        AddSizes(m_progress.m_llTotal, std::max<std::int64_t>(file->m_llHeld, 0));
  }
  for (SFile* file : recordings) {
    file->m_bSideFile = *size++ != 0;
    if (!file->m_bSideFile || IsChainHere(*file)) continue;
    m_stems.insert(BytesOf(PathOf(file->m_strPath).replace_extension()));
  }
  m_progress.m_nFilesTotal = m_mapFiles.size();
  m_tools.m_observer.OnPlanned(m_progress.m_nFilesTotal, m_progress.m_llTotal);
  return RESULT_OK;
}

void CVerification::Tell(SFileVerdict verdict) {
  ++m_result.m_counts[static_cast<std::size_t>(verdict.m_eVerdict)];
  m_result.m_vecFiles.push_back(std::move(verdict));
}

void CVerification::Show() {
  m_progress.m_llMoved = m_result.m_llRead;
  m_progress.m_dBytesPerSecond = m_rate.Count(m_progress.m_llMoved);
  m_tools.m_observer.OnProgress(m_progress);
}

bool SVerifyResult::IsSame() const {
  return m_nCode == RESULT_OK && m_bCompared && !m_bCancelled && !m_bMeanwhile && m_nLeftOut == 0 &&
         AreAllSame(m_counts);
}

SVerifyResult CProjectClient::Verify(const SVerifyRequest& request) {
  const CCancelToken::CScope running(m_pState->m_cancel);
  const std::int64_t start = System().SteadyMilliseconds();
  SVerifyResult verify;
  verify.m_strWhy = WhyNoVerify(request);
  if (!verify.m_strWhy.empty()) return verify;
  std::string directory;
  CSession& session = *m_pState->m_pSession;
  session.ChooseServer(request.m_strProject);
  verify.m_nCode = m_pState->EnsureConnected({request.m_nRetries, request.m_nRetrySeconds});
  if (verify.m_nCode == RESULT_OK) verify.m_nCode = session.AskDirectory(directory);
  if (verify.m_nCode == RESULT_OK) {
    const STransferTools tools{session,
                               m_pState->m_observer,
                               m_pState->m_cancel,
                               request.m_nRetries,
                               request.m_nRetrySeconds,
                               {}};
    verify.m_nCode = CVerification(tools, request, verify).Run(directory);
  }
  if (verify.m_nCode != RESULT_OK) verify.m_strWhy = DescribeResult(verify.m_nCode);
  verify.m_bCancelled = m_pState->m_cancel.IsCancelled();
  m_pState->EndTurn();
  verify.m_dSeconds = static_cast<double>(System().SteadyMilliseconds() - start) / 1000;
  return verify;
}

std::string CProjectClient::WhyNoVerify(const SVerifyRequest& request) {
  std::error_code error;
  if (!request.m_strLocal.empty() && !fs::is_directory(PathOf(request.m_strLocal), error)) {
    return request.m_strLocal + ": not a directory";
  }
  return WhyNoProject(request.m_strProject);
}
