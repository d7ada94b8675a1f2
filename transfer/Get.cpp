// Get: which files of a project become which files of this machine.

#include <algorithm>
#include <filesystem>
#include <set>

#include "platform/LocalNames.h"
#include "platform/PathBytes.h"
#include "protocol/MeasurementFiles.h"
#include "protocol/ResultCodes.h"
#include "transfer/Download.h"
#include "transfer/Names.h"
#include "transfer/ProjectClientState.h"
#include "transfer/ProjectTree.h"
#include "transfer/ServerInventory.h"

namespace fs = std::filesystem;

namespace {

std::string WithoutTail(std::string name) {
  while (!name.empty() && name.back() == '/') name.pop_back();
  return name;
}

// True for the file itself and for what lies in a directory of that name.
bool IsMeant(const std::string& listed, const std::string& argument) {
  return listed.compare(0, argument.size(), argument) == 0 &&
         (listed.size() == argument.size() || listed[argument.size()] == '/');
}

// The server lists no files deep down in a project; they can be had by name.
std::vector<SProjectFile> Choose(const std::vector<SProjectFile>& listed,
                                 const std::string& projectPath,
                                 const std::vector<std::string>& arguments, bool only) {
  if (arguments.empty() && !only) return listed;
  std::vector<SProjectFile> wanted;
  std::set<std::string> taken;  // a file that is named twice is fetched once
  for (const std::string& argument : arguments) {
    std::string name = argument;
    std::replace(name.begin(), name.end(), '\\', '/');
    name = WithoutTail(name);
    bool isListed = false;
    for (const SProjectFile& file : listed) {
      if (!IsMeant(WithoutTail(file.m_strName), name)) continue;
      isListed = true;
      if (taken.insert(file.m_strServer).second) wanted.push_back(file);
    }
    if (isListed) continue;
    std::string below = name;
    std::replace(below.begin(), below.end(), '/', '\\');
    std::string full = projectPath;
    full += "\\" + below;
    if (!taken.insert(full).second) continue;
    SProjectFile& file = wanted.emplace_back();
    file.m_strName = name;
    file.m_strServer = full;
  }
  return wanted;
}

STransferItem MakeItem(const SProjectFile& file, const std::string& project,
                       const std::string& into) {
  STransferItem item;
  item.m_strServer = file.m_strServer;
  item.m_strShown = project + "/" + WithoutTail(file.m_strName);
  fs::path local = PathOf(into) / PathOf(project);
  for (const std::string& part : SplitSafely(file.m_strName, item.m_strWhy)) local /= PathOf(part);
  item.m_strLocal = BytesOf(local);
  if (!IsAskable(item.m_strServer)) {
    item.m_strWhy = "the size of a file with \"|\" in its name cannot be asked for";
  }
  item.m_bFinal = !item.m_strWhy.empty();
  return item;
}

// What the inventory tells of each. Not of a recording with a side file: its
// bytes may lie in several files there.
void AddEntries(const CInventory& inventory, const std::vector<SProjectFile>& listed,
                std::vector<STransferItem>& items) {
  std::set<std::string> names;
  for (const SProjectFile& file : listed) names.insert(file.m_strServer);
  for (STransferItem& item : items) {
    const SInventoryEntry* const entry = inventory.Find(PathOfItem(item));
    const bool isRecording = IsMeasurementFile(item.m_strServer);
    if (entry == nullptr || item.m_bFinal) continue;
    if (isRecording && names.contains(SideFileName(item.m_strServer, kRangesExtension))) continue;
    item.m_pEntry = std::make_shared<SInventoryEntry>(*entry);
  }
}

// The inventory knows how long they are.
void RefuseOtherSizes(std::vector<STransferItem>& items) {
  for (STransferItem& item : items) {
    if (item.m_bFinal || item.m_pEntry == nullptr) continue;
    const std::int64_t size = item.m_pEntry->m_facts.m_llSize;
    if (size == item.m_llSize) continue;
    item.m_strWhy = "the server holds " + std::to_string(item.m_llSize) +
                    " bytes of it instead of " + std::to_string(size);
    if (!item.m_pEntry->m_bDigest) item.m_strWhy += "; it has not been sent to its end";
    item.m_bFinal = true;
  }
}

// Of files whose digest is known a sum is enough: none of them passes for whole
// that is not.
int AskItemSizes(CSession& session, std::vector<STransferItem>& items) {
  std::vector<std::string> known, others;
  std::vector<std::int64_t> expected;
  const auto isKnown = [](const STransferItem& item) {
    return item.m_pEntry != nullptr && item.m_pEntry->m_bDigest;
  };
  for (const STransferItem& item : items) {
    if (item.m_bFinal) continue;
    (isKnown(item) ? known : others).push_back(item.m_strServer);
    if (isKnown(item)) expected.push_back(item.m_pEntry->m_facts.m_llSize);
  }
  std::vector<std::int64_t> knownSizes, otherSizes;
  int result = session.AskExpectedSizes(known, expected, knownSizes);
  if (result == RESULT_OK) result = session.AskSizes(others, otherSizes);
  if (result != RESULT_OK) return result;
  auto knownSize = knownSizes.begin();
  auto otherSize = otherSizes.begin();
  std::int64_t total = 0;
  for (STransferItem& item : items) {
    if (!item.m_bFinal) TakeSize(item, isKnown(item) ? *knownSize++ : *otherSize++, total);
  }
  return RESULT_OK;
}

// Of a file that is on its way the bytes may be of two versions.
void RefuseUnended(const SInventoryHead& head, std::vector<STransferItem>& items) {
  for (STransferItem& item : items) {
    const bool isKnown = item.m_pEntry == nullptr || item.m_pEntry->m_bDigest;
    if (!item.m_bDone || isKnown || head.m_bComplete) continue;
    item.m_bDone = false;
    item.m_nCode = 0;
    item.m_strWhy = "its put has not ended (" + head.m_strBy + ", last sign of life " +
                    InventoryTime(head.m_llAlive) + ")";
  }
}

// Two files of the server may not meet in one place here.
void RefuseClashes(std::vector<STransferItem>& items) {
  std::set<std::string> taken;
  for (STransferItem& item : items) {
    if (item.m_bFinal) continue;
    if (taken.insert(FoldLocalName(item.m_strLocal)).second &&
        taken.insert(FoldLocalName(PartPath(item))).second) {
      continue;
    }
    item.m_strWhy = "another file would get the same place here";
    item.m_bFinal = true;
  }
}

}  // namespace

STransferResult CProjectClient::Get(const SGetRequest& request) {
  std::string why = WhyNoGet(request);
  if (why.empty()) why = WhyNoProject(request.m_strProject);
  if (why.empty()) why = WhyNoLocalName(request.m_strProject);
  m_pState->m_pSession->ChooseServer(request.m_strProject);
  CTransferScope scope(*m_pState, why, {request.m_nRetries, request.m_nRetrySeconds});
  if (!scope.HasBegun()) return scope.End();
  CSession& session = *m_pState->m_pSession;
  STransferResult& get = scope.Result();
  get.m_strProject = request.m_strProject;

  std::string directory;
  if (!scope.Check(session.AskDirectory(directory))) return scope.End();
  const std::string projectPath = directory + request.m_strProject;
  const STransferTools tools{session,
                             m_pState->m_observer,
                             m_pState->m_cancel,
                             request.m_nRetries,
                             request.m_nRetrySeconds,
                             {}};
  CServerInventory inventory(tools, projectPath);
  if (request.m_bInventory && !scope.Check(inventory.Read())) return scope.End();
  SProjectTree tree;
  if (!scope.Check(AskProjectTree(tools, directory, request.m_strProject, inventory, tree))) {
    return scope.End();
  }
  get.m_nProblems = tree.m_nLeftOut;
  get.m_strMayHide = tree.m_strMayHide;
  const std::vector<SProjectFile>& listed = tree.m_vecFiles;
  if (listed.empty() && request.m_vecFiles.empty() && !request.m_bOnlyFiles) {
    return scope.Refuse("the server lists no files of this project");
  }
  std::error_code error;
  const std::string into =
      BytesOf(fs::absolute(PathOf(request.m_strInto), error).lexically_normal());
  const std::vector<SProjectFile> chosen =
      Choose(listed, projectPath, request.m_vecFiles, request.m_bOnlyFiles);
  const std::vector<SProjectFile> picked = PickFiles(request.m_filter, chosen);
  get.m_nFiltered = chosen.size() - picked.size();
  for (const SProjectFile& file : picked) {
    get.m_vecItems.push_back(MakeItem(file, request.m_strProject, into));
  }
  AddEntries(inventory.Newest(), listed, get.m_vecItems);
  if (!scope.Check(AskItemSizes(session, get.m_vecItems))) return scope.End();
  RefuseOtherSizes(get.m_vecItems);
  RefuseClashes(get.m_vecItems);
  CDownload download(tools, into, get.m_vecItems, request.m_bOverwrite);
  download.Compare(get.m_vecItems, request.m_bChecksum, !request.m_bPlanOnly);
  if (!request.m_bPlanOnly) download.Run(get.m_vecItems);
  RefuseUnended(inventory.Newest().m_head, get.m_vecItems);
  return scope.End();
}

std::string CProjectClient::WhyNoGet(const SGetRequest& request) {
  if (fs::path::preferred_separator != '\\' && request.m_strInto.find('\\') != std::string::npos) {
    return "a name with \"\\\" cannot be used";
  }
  return request.m_strInto.empty() ? "the name is empty" : "";
}
