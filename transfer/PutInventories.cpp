// Put inventories: what a put makes of the inventories of its projects.
//
// What the planned one says holds wherever the put is cut off: it is written
// before the first byte that it speaks of.

#include "transfer/PutInventories.h"

#include <algorithm>
#include <cstdio>
#include <random>

#include "platform/Identity.h"
#include "platform/System.h"
#include "protocol/MeasurementFiles.h"
#include "protocol/ResultCodes.h"
#include "transfer/ProjectClient.h"

namespace {

constexpr std::int64_t kBetweenMs = 20000;
constexpr std::int64_t kWritingShare = 20;  // of the time of a put, one in so many

const char* const kTooLong = "the inventory would be too long to be read again";

std::string RunName() {
  std::random_device random;
  char text[32];
  std::snprintf(text, sizeof text, "%08x-%08x", random(), random());
  return text;
}

bool IsSameEntry(const SInventoryEntry* a, const SInventoryEntry& b) {
  return a != nullptr && a->m_facts == b.m_facts && a->m_bDigest == b.m_bDigest &&
         a->m_digest == b.m_digest && a->m_bMixed == b.m_bMixed;
}

}  // namespace

CPutInventories::CPutInventories(const STransferTools& tools, const std::string& directory,
                                 const std::vector<STransferItem>& items)
    : m_items(items), m_strRun(RunName()) {
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

std::size_t CPutInventories::CountOnlyThere() const {
  std::map<std::string, std::size_t> both;
  std::size_t only = 0;
  for (const STransferItem& item : m_items) {
    const auto project = m_mapProjects.find(ProjectOfItem(item));
    if (project != m_mapProjects.end() &&
        project->second.m_server.Newest().Find(PathOfItem(item)) != nullptr) {
      ++both[project->first];
    }
  }
  for (const auto& [name, project] : m_mapProjects) {
    only += project.m_server.Newest().GetFiles().size() - both[name];
  }
  return only;
}

// What becomes of one file in the inventory while the put runs.
void CPutInventories::Enter(SProject& project, const STransferItem& item, const PutWays& ways,
                            std::string& why) const {
  const std::string path = PathOfItem(item);
  const SInventoryEntry* const former = project.m_server.Newest().Find(path);
  SInventoryEntry entry;
  const auto way = ways.find(&item);
  if (way != ways.end()) {
    project.m_bSends = true;
    if (way->second.m_bRepair && former != nullptr) return;
    entry.m_facts = way->second.m_facts;
    entry.m_bMixed = !way->second.m_vecBlocks.empty() && IsMeasurementFile(item.m_strLocal);
  } else if (item.m_pEntry != nullptr) {
    entry = *item.m_pEntry;
  } else if (item.m_eReason == EReason::kEqual &&
             ReadFileFacts(item.m_strLocal, entry.m_facts).empty()) {
    project.m_mapByLength[path] = entry;
    project.m_mine.Remove(path);
    project.m_bChanged = project.m_bChanged || !IsSameEntry(former, entry);
    return;
  } else {
    return;
  }
  project.m_bChanged = project.m_bChanged || !IsSameEntry(former, entry);
  why = project.m_mine.Set(path, entry);
  if (!why.empty()) why = item.m_strShown + " cannot be in an inventory: " + why;
}

std::string CPutInventories::WritePlanned(const PutWays& ways) {
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
  for (const STransferItem& item : m_items) {
    if (item.m_bFinal) continue;
    std::string why;
    Enter(m_mapProjects.at(ProjectOfItem(item)), item, ways, why);
    if (!why.empty()) return why;
  }
  for (auto& [name, project] : m_mapProjects) {
    if (!project.m_bSends) continue;
    project.m_bChanged = true;
    if (project.m_mine.Text().size() > kMostInventoryBytes) return kTooLong;
    if (std::string why = Written(project, project.m_server.Write(project.m_mine)); !why.empty()) {
      return why;
    }
  }
  m_llNextMs = System().SteadyMilliseconds() + kBetweenMs;
  return "";
}

// Enters what is known of every file that is done.
void CPutInventories::TakeEntries(std::map<std::string, std::set<std::string>>& sent) {
  for (const STransferItem& item : m_items) {
    if (!item.m_bDone || item.m_pEntry == nullptr) continue;
    const std::string project = ProjectOfItem(item), path = PathOfItem(item);
    if (m_mapProjects.at(project).m_mine.Set(path, *item.m_pEntry).empty()) {
      sent[project].insert(path);
    }
  }
}

void CPutInventories::WriteBetween() {
  const std::int64_t start = System().SteadyMilliseconds();
  if (m_llNextMs == 0 || start < m_llNextMs) return;
  std::map<std::string, std::set<std::string>> sent;
  TakeEntries(sent);
  for (auto& [name, project] : m_mapProjects) {
    if (project.m_bSends) Written(project, project.m_server.Write(project.m_mine));
  }
  const std::int64_t end = System().SteadyMilliseconds();
  m_llNextMs = end + std::max(kBetweenMs, kWritingShare * (end - start));
}

bool CPutInventories::IsAllDone(const std::string& project) const {
  return std::all_of(m_items.begin(), m_items.end(), [&](const STransferItem& item) {
    return item.m_bDone || ProjectOfItem(item) != project;
  });
}

// Another workstation may have written meanwhile: of the files that this run
// has not sent, what stands there then is taken.
std::string CPutInventories::WriteComplete() {
  std::map<std::string, std::set<std::string>> sent;
  TakeEntries(sent);
  for (auto& [name, project] : m_mapProjects) {
    const bool all = IsAllDone(name);
    if (!project.m_bChanged && project.m_server.Newest().m_head.m_bComplete == all) continue;
    std::set<std::string>& mine = sent[name];
    int result = project.m_server.Read();
    if (result == RESULT_OK) {
      for (const auto& [path, entry] : project.m_mapByLength) {
        if (all && mine.insert(path).second) project.m_mine.Set(path, entry);
      }
      const auto isMine = [&](const std::string& path) {
        return mine.contains(path) || project.m_mapByLength.contains(path);
      };
      project.m_mine.MergeFrom(project.m_server.Newest(), isMine);
      project.m_mine.m_head.m_bComplete = all;
      if (project.m_mine.Text().size() > kMostInventoryBytes) return kTooLong;
      result = project.m_server.Write(project.m_mine);
    }
    if (std::string why = Written(project, result); !why.empty()) return why;
  }
  return "";
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
  return result == RESULT_OK ? "" : "cannot write the inventory: " + DescribeResult(result);
}
