// Inventories at the server: read before a transfer, written around a put.
//
// They are ordinary files of the project for the server, moved by the same
// messages as all others, from and to memory.

#include "transfer/ServerInventory.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <random>
#include <set>
#include <utility>

#include "platform/Identity.h"
#include "protocol/ResultCodes.h"
#include "transfer/Insist.h"
#include "transfer/Names.h"
#include "transfer/ProjectClient.h"
#include "transfer/Session.h"

namespace {

const char* const kTooLong = "the inventory would be too long to be read again";

std::string RunName() {
  std::random_device random;
  char text[32];
  std::snprintf(text, sizeof text, "%08x-%08x", random(), random());
  return text;
}

std::int64_t NowSeconds() {
  return std::chrono::duration_cast<std::chrono::seconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

}  // namespace

CServerInventory::CServerInventory(const STransferTools& tools, std::string project)
    : m_tools(tools), m_strProject(std::move(project)) {}

int CServerInventory::Read() {
  return Insist(m_tools, [this] { return ReadPlaces(); });
}

int CServerInventory::ReadPlaces() {
  std::string first, other;
  int result = ReadPlace(Place(kInventoryName), first);
  if (result == RESULT_OK) result = ReadPlace(Place(kOtherInventoryName), other);
  if (result == RESULT_OK) m_choice = ChooseInventory(first, other);
  return result;
}

// A name that cannot be asked about is read right away; then none is none.
int CServerInventory::ReadPlace(const std::string& name, std::string& text) {
  text.clear();
  if (IsAskable(name)) {
    std::vector<std::int64_t> sizes;
    const int result = m_tools.m_session.AskSizes({name}, sizes);
    if (result != RESULT_OK || sizes.front() == 0) return result;
    if (sizes.front() < 0 || sizes.front() > static_cast<std::int64_t>(kMostInventoryBytes)) {
      return RESULT_OK;  // none that could be whole
    }
  }
  const int result = m_tools.m_session.ReadFile(name, [&text](const char* data, std::size_t size) {
    if (text.size() + size > kMostInventoryBytes) return false;
    text.append(data, size);
    return true;
  });
  return !IsAskable(name) && result == ERROR_CODE_SERVER_OPENFILE ? static_cast<int>(RESULT_OK)
                                                                  : result;
}

int CServerInventory::Write(CInventory inventory) {
  // A complete one ends in the first place, where others look for it.
  for (bool first = false; !first;) {
    first = !inventory.m_head.m_bComplete || m_choice.m_strNextPlace == kInventoryName;
    const int result = Insist(m_tools, [&] { return WriteOnce(inventory); });
    if (result != RESULT_OK) return result;
  }
  return RESULT_OK;
}

int CServerInventory::WriteOnce(CInventory& inventory) {
  inventory.m_head.m_llGeneration = m_choice.m_inventory.m_head.m_llGeneration + 1;
  inventory.m_head.m_llAlive = NowSeconds();
  const std::string place = m_choice.m_strNextPlace;
  m_strLastWritten = Place(place);
  const int result = m_tools.m_session.WriteText(m_strLastWritten, inventory.Text());
  if (result != RESULT_OK) return result;
  m_choice.m_bFound = true;
  m_choice.m_inventory = inventory;
  m_choice.m_strPlace = place;
  m_choice.m_strNextPlace = place == kInventoryName ? kOtherInventoryName : kInventoryName;
  return RESULT_OK;
}

std::string ProjectOfItem(const STransferItem& item) {
  return item.m_strShown.substr(0, item.m_strShown.find('/'));
}

std::string PathOfItem(const STransferItem& item) {
  return item.m_strShown.substr(item.m_strShown.find('/') + 1);
}

CPutInventories::CPutInventories(const STransferTools& tools, const std::string& directory,
                                 const std::vector<STransferItem>& items)
    : m_items(items), m_strRun(RunName()) {
  for (const STransferItem& item : items) {
    if (item.m_bFinal) continue;
    const std::string project = ProjectOfItem(item);
    m_mapProjects.try_emplace(project,
                              SProject{CServerInventory(tools, directory + project), CInventory()});
  }
}

std::string CPutInventories::Read() {
  for (auto& [name, project] : m_mapProjects) {
    const int result = project.m_server.Read();
    if (result != RESULT_OK) return "cannot read the inventory: " + DescribeResult(result);
  }
  return "";
}

std::string CPutInventories::WritePlanned() {
  for (auto& [name, project] : m_mapProjects) {
    project.m_mine = project.m_server.Newest();
    project.m_mine.m_head.m_bComplete = false;
    project.m_mine.m_head.m_strRun = m_strRun;
    project.m_mine.m_head.m_strBy = UserAtHost();
  }
  for (const STransferItem& item : m_items) {
    if (item.m_bFinal) continue;
    SInventoryEntry entry;
    if (std::string why = ReadFileFacts(item.m_strLocal, entry.m_facts); !why.empty()) continue;
    std::string why = m_mapProjects.at(ProjectOfItem(item)).m_mine.Set(PathOfItem(item), entry);
    if (!why.empty()) return item.m_strShown + " cannot be in an inventory: " + why;
  }
  for (auto& [name, project] : m_mapProjects) {
    project.m_mine.CarryOver(project.m_server.Newest());
    if (project.m_mine.Text().size() > kMostInventoryBytes) return kTooLong;
    if (std::string why = Written(project, project.m_server.Write(project.m_mine)); !why.empty()) {
      return why;
    }
  }
  return "";
}

// Another workstation may have written meanwhile: of the files that this run
// has not sent, what stands there then is taken.
std::string CPutInventories::WriteComplete(bool all) {
  std::map<std::string, std::set<std::string>> sent;
  for (const STransferItem& item : m_items) {
    if (!item.m_bDone || item.m_pEntry == nullptr) continue;
    const std::string path = PathOfItem(item);
    if (m_mapProjects.at(ProjectOfItem(item)).m_mine.Set(path, *item.m_pEntry).empty()) {
      sent[ProjectOfItem(item)].insert(path);
    }
  }
  for (auto& [name, project] : m_mapProjects) {
    const std::set<std::string>& mine = sent[name];
    int result = project.m_server.Read();
    if (result == RESULT_OK) {
      project.m_mine.MergeFrom(project.m_server.Newest(),
                               [&mine](const std::string& path) { return mine.contains(path); });
      project.m_mine.m_head.m_bComplete = all;
      if (project.m_mine.Text().size() > kMostInventoryBytes) return kTooLong;
      result = project.m_server.Write(project.m_mine);
    }
    if (std::string why = Written(project, result); !why.empty()) return why;
  }
  return "";
}

std::string CPutInventories::Written(SProject& project, int result) {
  if (!project.m_server.LastWritten().empty()) m_strLastWritten = project.m_server.LastWritten();
  return result == RESULT_OK ? "" : "cannot write the inventory: " + DescribeResult(result);
}
