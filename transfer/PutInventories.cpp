// Put inventories: what a put makes of the inventories of its projects.
//
// What the planned one says holds wherever the put is cut off: it is written
// before the first byte that it speaks of.

#include "transfer/PutInventories.h"

#include <algorithm>

#include "platform/Identity.h"
#include "platform/System.h"
#include "protocol/ResultCodes.h"
#include "transfer/ProjectClient.h"
#include "transfer/SendingNote.h"

namespace {

constexpr std::int64_t kBetweenMs = 20000;
constexpr std::int64_t kWritingShare = 20;  // of the time of a put, one in so many

const char* const kTooLong = "the inventory would be too long to be read again";

bool AreSameFiles(const CInventory& a, const CInventory& b) {
  return std::equal(a.GetFiles().begin(), a.GetFiles().end(), b.GetFiles().begin(),
                    b.GetFiles().end(), [](const auto& one, const auto& other) {
                      const SInventoryEntry &x = one.second, &y = other.second;
                      return one.first == other.first && x.m_facts == y.m_facts &&
                             x.m_bDigest == y.m_bDigest && x.m_digest == y.m_digest &&
                             x.m_bMixed == y.m_bMixed;
                    });
}

}  // namespace

CPutInventories::CPutInventories(const STransferTools& tools, const std::string& directory,
                                 const std::vector<STransferItem>& items, bool isPart)
    : m_items(items), m_bPart(isPart), m_strRun(RunName()) {
  for (const STransferItem& item : items) {
    if (item.m_bFinal) continue;
    const std::string project = ProjectOfItem(item);
    m_mapProjects.try_emplace(project, CServerInventory(tools, directory + project));
  }
}

std::string CPutInventories::Read() {
  for (auto& [name, project] : m_mapProjects) {
    int result = project.m_server.Read();
    if (result == RESULT_OK) result = project.m_server.ReadNote(project.m_note);
    if (result != RESULT_OK) return "cannot read the inventory: " + DescribeResult(result);
  }
  return "";
}

std::vector<std::string> CPutInventories::Asked() const {
  if (m_mapProjects.size() != 1) return {};
  return m_mapProjects.begin()->second.m_server.Asked();
}

const SInventoryEntry* CPutInventories::Find(const STransferItem& item) const {
  const CInventory& newest = m_mapProjects.at(ProjectOfItem(item)).m_server.Newest();
  const SInventoryEntry* const entry = newest.Find(PathOfItem(item));
  const bool isKnown = entry != nullptr && (entry->m_bDigest || !newest.m_head.m_bComplete);
  return isKnown ? entry : nullptr;
}

const std::vector<std::int64_t>* CPutInventories::Damage(const STransferItem& item) const {
  const CDamageNote::Files& files = m_mapProjects.at(ProjectOfItem(item)).m_note.GetFiles();
  const auto found = files.empty() ? files.end() : files.find(PathOfItem(item));
  return found == files.end() ? nullptr : &found->second;
}

std::size_t CPutInventories::CountOnlyThere(const CFilter& filter) const {
  const bool isNew = std::all_of(m_mapProjects.begin(), m_mapProjects.end(), [](const auto& named) {
    return named.second.m_server.Newest().GetFiles().empty();
  });
  if (isNew) return 0;
  std::set<std::string> here;  // with their projects
  for (const STransferItem& item : m_items)
    here.insert(ProjectOfItem(item) + "/" + PathOfItem(item));
  std::size_t only = 0;
  for (const auto& [name, project] : m_mapProjects) {
    std::vector<std::string> paths;
    for (const auto& [path, entry] : project.m_server.Newest().GetFiles()) paths.push_back(path);
    const std::vector<bool> picked = filter.Pick(paths);
    for (std::size_t i = 0; i < paths.size(); ++i) {
      if (picked[i] && !here.contains(name + "/" + paths[i])) ++only;
    }
  }
  return only;
}

// What is true of one file, or will be from the next byte on that is sent.
std::string CPutInventories::Enter(const STransferItem& item, bool ended) {
  SProject& project = m_mapProjects.at(ProjectOfItem(item));
  const std::string path = PathOfItem(item);
  SInventoryEntry entry;
  const auto way = m_pWays->find(&item);
  if (item.m_bDone && item.m_pEntry != nullptr) {
    entry = *item.m_pEntry;
  } else if (item.m_bDone) {  // its length is all that is known
    if (ReadFileFacts(item.m_strLocal, entry.m_facts).empty()) project.m_mapByLength[path] = entry;
    project.m_mine.Remove(path);
    return "";
  } else if (way == m_pWays->end()) {
    return "";
  } else if (const SPutWay& on = way->second; on.m_bRepair || (ended && !on.m_bBegun)) {
    if (on.m_pFormer == nullptr) project.m_mine.Remove(path);
    if (on.m_pFormer == nullptr) return "";
    entry = *on.m_pFormer;
  } else {
    entry.m_facts = on.m_facts;
    entry.m_bMixed = on.m_bMixed;
  }
  const std::string why = project.m_mine.Set(path, entry);
  return why.empty() ? "" : item.m_strShown + " cannot be in an inventory: " + why;
}

std::string CPutInventories::EnterAll(bool ended) {
  for (const STransferItem& item : m_items) {
    if (item.m_bFinal && m_pWays->count(&item) == 0) continue;
    if (std::string why = Enter(item, ended); !why.empty()) return why;
  }
  return "";
}

std::string CPutInventories::WritePlanned(const PutWays& ways) {
  m_pWays = &ways;
  for (auto& [name, project] : m_mapProjects) {
    project.m_mine = project.m_server.Newest();
    const bool wasComplete = project.m_mine.m_head.m_bComplete;
    project.m_mine.m_head.m_bComplete = false;
    project.m_mine.m_head.m_strRun = m_strRun;
    project.m_mine.m_head.m_strBy = UserAtHost();
    // In a planned one they would pass for files on their way.
    for (const auto& [path, entry] : project.m_server.Newest().GetFiles()) {
      if (entry.m_bDigest || !wasComplete) continue;
      project.m_mapByLength[path] = entry;
      project.m_mine.Remove(path);
    }
  }
  for (const auto& [item, way] : ways) m_mapProjects.at(ProjectOfItem(*item)).m_bSends = true;
  if (std::string why = EnterAll(false); !why.empty()) return why;
  std::string why = WriteSending();
  m_llNextMs = System().SteadyMilliseconds() + kBetweenMs;
  return why;
}

std::string CPutInventories::WriteSending() {
  for (auto& [name, project] : m_mapProjects) {
    if (!project.m_bSends) continue;
    if (std::string why = Written(project, project.m_server.Write(project.m_mine)); !why.empty()) {
      return why;
    }
  }
  return "";
}

void CPutInventories::WriteBetween(bool now) {
  const std::int64_t start = System().SteadyMilliseconds();
  if (m_pWays == nullptr || (!now && start < m_llNextMs)) return;
  EnterAll(false);
  WriteSending();
  const std::int64_t end = System().SteadyMilliseconds();
  m_llNextMs = end + std::max(kBetweenMs, kWritingShare * (end - start));
}

// Of a part, what earlier puts have begun of the other files counts as well.
bool CPutInventories::IsAllDone(const std::string& name, const SProject& project) const {
  const CInventory::Files& files = project.m_mine.GetFiles();
  return std::all_of(m_items.begin(), m_items.end(),
                     [&](const STransferItem& item) {
                       return item.m_bDone || ProjectOfItem(item) != name;
                     }) &&
         (!m_bPart || std::all_of(files.begin(), files.end(),
                                  [](const auto& file) { return file.second.m_bDigest; }));
}

std::string CPutInventories::WriteComplete() {
  if (m_pWays == nullptr) return "";
  EnterAll(true);
  for (auto& [name, project] : m_mapProjects) {
    const bool all = IsAllDone(name, project);
    if (all) {
      for (const auto& [path, entry] : project.m_mapByLength) {
        if (project.m_mine.Find(path) == nullptr) project.m_mine.Set(path, entry);
      }
    }
    const CInventory& newest = project.m_server.Newest();
    if (newest.m_head.m_bComplete == all && AreSameFiles(newest, project.m_mine)) continue;
    const int result = WriteEnd(name, project, all);
    if (std::string why = Written(project, result); !why.empty()) return why;
  }
  return "";
}

// Another workstation may have written meanwhile: of the files that are not of
// this put, what stands there then is taken.
int CPutInventories::WriteEnd(const std::string& name, SProject& project, bool all) {
  const int result = project.m_server.Read();
  if (result != RESULT_OK) return result;
  const CInventory& newest = project.m_server.Newest();
  if (newest.m_head.m_strRun != m_strRun && newest.m_head.m_llGeneration > 0) {
    std::set<std::string> mine;
    for (const STransferItem& item : m_items) {
      if (ProjectOfItem(item) == name) mine.insert(PathOfItem(item));
    }
    project.m_mine.MergeFrom(newest, [&](const std::string& path) {
      return mine.contains(path) || project.m_mapByLength.contains(path);
    });
  }
  project.m_mine.m_head.m_bComplete = all;
  return project.m_server.Write(project.m_mine);
}

void CPutInventories::EndHealing(STransferResult& put) {
  std::set<SProject*> healed;
  for (const STransferItem& item : m_items) {
    const auto project = m_mapProjects.find(ProjectOfItem(item));
    if (!item.m_bDone || project == m_mapProjects.end()) continue;
    const std::vector<std::int64_t>* const blocks = Damage(item);
    if (blocks == nullptr) continue;
    ++put.m_nFilesHealed;
    put.m_nBlocksHealed += blocks->size();
    project->second.m_note.Remove(PathOfItem(item));
    healed.insert(&project->second);
  }
  for (SProject* const project : healed) {
    const int result = project->m_server.WriteNote(project->m_note);
    if (result != RESULT_OK)
      put.m_strInventory = "cannot write the note of damage: " + DescribeResult(result);
  }
}

std::string CPutInventories::Written(SProject& project, int result) {
  if (!project.m_server.LastWritten().empty()) m_strLastWritten = project.m_server.LastWritten();
  if (result == 0) return kTooLong;
  return result == RESULT_OK ? "" : "cannot write the inventory: " + DescribeResult(result);
}
