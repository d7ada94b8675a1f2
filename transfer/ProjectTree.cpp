// The tree of a project at the server, put together from its lists.
//
// A list names the files of a directory and of those in it; deeper ones only
// where the application keeps its models. So every directory that a file is
// known of is asked for, too. Links to directories are listed as files like
// hidden directories, and may lead in circles: one whose list is that of a
// directory above it is not gone into.

#include "transfer/ProjectTree.h"

#include <algorithm>
#include <map>
#include <set>
#include <utility>

#include "protocol/ResultCodes.h"
#include "transfer/CancelToken.h"
#include "transfer/Names.h"
#include "transfer/ProjectClientState.h"
#include "transfer/Session.h"

namespace {

constexpr std::size_t kMostQuestions = 100000;
constexpr std::size_t kMostFiles = kMostInventoryFiles;
constexpr std::ptrdiff_t kMostLevels = 100;

const char* const kCircle = "it leads back to a directory above it";
const char* const kMayHide =
    "it has no inventory: files below directories that hold no file themselves, and those with a "
    "\"\\\" in their names, cannot be seen";
const char* const kTooMany = "there are more directories and files than can be asked for";

std::string ServerName(std::string path) {
  std::replace(path.begin(), path.end(), '/', '\\');
  return path;
}

// The directory of a name below a project; "" for the project itself.
std::string DirectoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? "" : path.substr(0, slash);
}

class CTreeWalk {
 public:
  CTreeWalk(const STransferTools& tools, const std::string& directory, const std::string& project,
            const CInventory& inventory)
      : m_tools(tools), m_strDirectory(directory), m_strProject(project), m_inventory(inventory) {}

  int Run(bool deep, SProjectTree& tree) {
    std::vector<SProjectFile> top;
    const int result = AskList("", top);
    if (result != RESULT_OK) return result;
    Take("", top, deep);
    do {
      AskPending();
    } while (GoIntoEntries() && !IsOver());
    AddUnlisted();
    tree.m_nLeftOut = m_nLeftOut + (m_tools.m_cancel.IsCancelled() ? 1 : 0);
    for (auto& [path, file] : m_files) tree.m_vecFiles.push_back(std::move(file));
    return RESULT_OK;
  }

 private:
  bool IsOver() const { return m_bTooMany || m_tools.m_cancel.IsCancelled(); }

  // Once more on a new connection, when it is not answered.
  int AskList(const std::string& below, std::vector<SProjectFile>& files) {
    m_asked.insert(below);
    ++m_nQuestions;
    const std::string name = m_strProject + (below.empty() ? "" : "\\") + ServerName(below);
    int result = AskFileNames(m_tools.m_session, m_strDirectory, name, files);
    if (result == RESULT_OK || result == kRequestUnknown) return result;
    m_tools.m_observer.OnReconnecting();
    result = m_tools.m_session.Reopen();
    return result == RESULT_OK ? AskFileNames(m_tools.m_session, m_strDirectory, name, files)
                               : result;
  }

  void Take(const std::string& below, const std::vector<SProjectFile>& files, bool deep) {
    std::string names;
    for (const SProjectFile& file : files) names.append(file.m_strName).push_back('\0');
    m_lists[below] = DigestOf(names);
    for (const SProjectFile& file : files) {
      const std::string path = below + (below.empty() ? "" : "/") + file.m_strName;
      if (IsOwnFile(path) || m_directories.contains(path)) continue;
      if (m_files.size() >= kMostFiles || CountLevels(path) > kMostLevels) {
        TooMany();
        return;
      }
      SProjectFile& taken = m_files[path];
      taken.m_strName = path;
      taken.m_strServer = file.m_strServer;
      if (deep) AddDirectories(path);
    }
  }

  static std::ptrdiff_t CountLevels(const std::string& path) {
    return std::count(path.begin(), path.end(), '/');
  }

  void AddDirectories(const std::string& path) {
    for (std::string at = DirectoryOf(path); !at.empty(); at = DirectoryOf(at)) {
      if (m_asked.contains(at) || !m_queued.insert(at).second) return;
      m_pending.push_back(at);
    }
  }

  void AskPending() {
    while (!m_pending.empty() && !IsOver()) {
      const std::string below = m_pending.back();
      m_pending.pop_back();
      if (m_asked.contains(below)) continue;
      std::vector<SProjectFile> files;
      if (Ask(below, files)) Take(below, files, true);
    }
  }

  // False when it could not be asked for; then that is told.
  bool Ask(const std::string& below, std::vector<SProjectFile>& files) {
    if (m_nQuestions >= kMostQuestions) {
      TooMany();
      return false;
    }
    const int result = AskList(below, files);
    if (result != RESULT_OK) LeaveOut(below, DescribeResult(result));
    return result == RESULT_OK;
  }

  // True when one of the entries that hold nothing was a directory.
  bool GoIntoEntries() {
    std::vector<SProjectFile> entries;
    std::vector<std::string> names;
    for (const auto& [path, file] : m_files) {
      const bool known = m_inventory.Find(path) != nullptr || m_asked.contains(path);
      if (known || !IsAskable(file.m_strServer)) continue;
      entries.push_back(file);
      names.push_back(file.m_strServer);
    }
    std::vector<std::int64_t> sizes;
    if (IsOver() || m_tools.m_session.AskSizes(names, sizes) != RESULT_OK) return false;
    bool any = false;
    for (std::size_t i = 0; i < entries.size() && !IsOver(); ++i) {
      const std::string& path = entries[i].m_strName;
      m_asked.insert(path);  // of those that hold something: not again
      std::vector<SProjectFile> files;
      if (sizes[i] != 0 || !Ask(path, files) || files.empty()) continue;
      any = true;
      m_files.erase(path);
      m_directories.insert(path);
      if (LeadsBack(path, files)) {
        LeaveOut(path, kCircle);
      } else {
        Take(path, files, true);
      }
    }
    return any;
  }

  bool LeadsBack(const std::string& path, const std::vector<SProjectFile>& files) const {
    std::string names;
    for (const SProjectFile& file : files) names.append(file.m_strName).push_back('\0');
    const SDigest digest = DigestOf(names);
    for (std::string at = path; !at.empty();) {
      at = DirectoryOf(at);
      const auto list = m_lists.find(at);
      if (list != m_lists.end() && list->second == digest) return true;
    }
    return false;
  }

  void TooMany() {
    if (!m_bTooMany) LeaveOut("", kTooMany);
    m_bTooMany = true;
  }

  void LeaveOut(const std::string& below, const std::string& why) {
    ++m_nLeftOut;
    m_tools.m_observer.OnLeftOut({m_strProject + (below.empty() ? "" : "/") + below, why, true});
  }

  // What the inventory tells beside it. What a file lies below is no file.
  void AddUnlisted() {
    for (const auto& [path, entry] : m_inventory.GetFiles()) {
      SProjectFile& file = m_files[path];
      file.m_strName = path;
      if (file.m_strServer.empty()) {
        file.m_strServer = m_strDirectory + m_strProject + "\\" + ServerName(path);
      }
      for (std::string at = DirectoryOf(path); !at.empty(); at = DirectoryOf(at)) {
        if (!m_directories.insert(at).second) break;
      }
    }
    for (const std::string& path : m_directories) m_files.erase(path);
  }

  const STransferTools& m_tools;
  const std::string m_strDirectory;
  const std::string m_strProject;
  const CInventory& m_inventory;
  std::map<std::string, SProjectFile> m_files;  // by name below the project
  std::map<std::string, SDigest> m_lists;       // what a directory's list names
  std::set<std::string> m_directories;          // listed as files
  std::set<std::string> m_asked;                // what was or need not be asked for
  std::set<std::string> m_queued;               // was pending once
  std::vector<std::string> m_pending;           // to be asked for
  std::size_t m_nQuestions = 0;
  std::size_t m_nLeftOut = 0;
  bool m_bTooMany = false;
};

}  // namespace

std::vector<SProjectFile> PickFiles(const CFilter& filter, const std::vector<SProjectFile>& files) {
  std::vector<std::string> paths;
  paths.reserve(files.size());
  for (const SProjectFile& file : files) paths.push_back(file.m_strName);
  const std::vector<bool> picked = filter.Pick(paths);
  std::vector<SProjectFile> kept;
  for (std::size_t i = 0; i < files.size(); ++i) {
    if (picked[i]) kept.push_back(files[i]);
  }
  return kept;
}

int AskProjectTree(const STransferTools& tools, const std::string& directory,
                   const std::string& project, const CServerInventory& inventory,
                   SProjectTree& tree) {
  const bool alone = !inventory.IsFound();
  if (alone) tree.m_strMayHide = kMayHide;
  return CTreeWalk(tools, directory, project, inventory.Newest()).Run(alone, tree);
}
