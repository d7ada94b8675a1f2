// The files of this machine that a put names. Names are bytes and stay so.

#include "transfer/LocalFiles.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <utility>

#include "platform/PathBytes.h"
#include "transfer/ProjectPath.h"

namespace fs = std::filesystem;

namespace {

const char* const kOwnName = "a file of this name is kept for the project by kqft itself";
const char* const kNoFile = "neither a file nor a directory of its own";

// The protocol separates by "\" and the library lists requests by lines.
std::string WhyUnsendable(const std::string& path) {
  if (fs::path::preferred_separator != '\\' && path.find('\\') != std::string::npos) {
    return "the server would take the \"\\\" in the name for a separator";
  }
  if (path.find('\n') != std::string::npos) return "the name holds a line end";
  return "";
}

void AddFile(const fs::path& path, const std::vector<std::string>& components, SLocalFiles& found) {
  if (components.size() == 1 && IsOwnFile(components.front())) {
    found.m_vecLeftOut.push_back({BytesOf(path), kOwnName, false});
    return;
  }
  SLocalFile file;
  file.m_strPath = BytesOf(path);
  file.m_vecComponents = components;
  file.m_strWhyNot = WhyUnsendable(file.m_strPath);
  const std::string unknown = ReadFileFacts(file.m_strPath, file.m_facts);
  if (!unknown.empty()) file.m_strWhyNot = unknown;
  found.m_vecFiles.push_back(std::move(file));
}

// Each knows its kind without another call.
std::map<std::string, fs::directory_entry> SortedEntries(const fs::path& directory,
                                                         std::error_code& error) {
  std::map<std::string, fs::directory_entry> entries;
  for (fs::directory_iterator entry(directory, error), end; !error && entry != end;
       entry.increment(error)) {
    entries.emplace(BytesOf(entry->path().filename()), *entry);
  }
  return entries;
}

std::string JoinForPeople(const std::vector<std::string>& components) {
  std::string path;
  for (const std::string& component : components) path += (path.empty() ? "" : "/") + component;
  return path;
}

void Walk(const fs::path& directory, std::vector<std::string>& components, const CFilter& filter,
          SLocalFiles& found) {
  std::error_code error;
  for (const auto& [name, entry] : SortedEntries(directory, error)) {
    if (found.m_pStop != nullptr && *found.m_pStop) return;
    const fs::path& path = entry.path();
    components.push_back(name);
    std::error_code ignored;
    const bool isDirectory = !entry.is_symlink(ignored) && entry.is_directory(ignored);
    const bool isFile = entry.is_regular_file(ignored);
    // Files are chosen together.
    if (!isFile && !filter.IsEmpty() && !filter.Allows(JoinForPeople(components), isDirectory)) {
      ++found.m_nFiltered;
    } else if (isDirectory) {
      Walk(path, components, filter, found);
    } else if (isFile) {
      AddFile(path, components, found);
    } else {
      found.m_vecLeftOut.push_back({BytesOf(path), kNoFile, false});
    }
    components.pop_back();
  }
  if (error) found.m_vecLeftOut.push_back({BytesOf(directory), error.message(), true});
}

// Without what a list of names may have in front and behind; "" for all.
fs::path PlainPath(const std::string& name) {
  fs::path path = PathOf(name).relative_path().lexically_normal();
  if (!path.has_filename()) path = path.parent_path();
  return path == "." ? fs::path() : path;
}

// Keeps what the filter picks of the files that were added.
void KeepPicked(const CFilter& filter, SLocalFiles& found) {
  if (filter.IsEmpty()) return;
  std::vector<std::string> paths;
  for (const SLocalFile& file : found.m_vecFiles) paths.push_back(PathBelow(file));
  const std::vector<bool> picked = filter.Pick(paths);
  std::vector<SLocalFile> kept;
  for (std::size_t i = 0; i < picked.size(); ++i) {
    if (picked[i]) kept.push_back(std::move(found.m_vecFiles[i]));
  }
  found.m_nFiltered += picked.size() - kept.size();
  found.m_vecFiles = std::move(kept);
}

}  // namespace

std::string PathBelow(const SLocalFile& file) {
  return JoinForPeople(file.m_vecComponents);
}

void CollectNamedFiles(const std::string& directory, const std::vector<std::string>& names,
                       const CFilter& filter, SLocalFiles& found) {
  std::error_code error;
  const fs::path top = fs::absolute(PathOf(directory), error).lexically_normal();
  SLocalFiles all;
  for (const std::string& name : names) {
    const fs::path below = PlainPath(name);
    std::vector<std::string> components;
    for (const fs::path& component : below) components.push_back(BytesOf(component));
    const fs::path path = top / below;
    if (const std::string why = below.empty() ? "" : WhyNoPath(JoinForPeople(components));
        !why.empty()) {
      all.m_vecLeftOut.push_back({name, why, true});
    } else if (fs::is_directory(path, error)) {
      Walk(path, components, filter, all);
    } else if (fs::is_regular_file(path, error)) {
      AddFile(path, components, all);
    } else {
      all.m_vecLeftOut.push_back({BytesOf(path), "no such file or directory", true});
    }
  }
  KeepPicked(filter, all);
  // One that is named twice is sent once.
  std::map<std::vector<std::string>, SLocalFile> sorted;
  for (SLocalFile& file : all.m_vecFiles) sorted[file.m_vecComponents] = std::move(file);
  for (auto& [components, file] : sorted) found.m_vecFiles.push_back(std::move(file));
  found.m_vecLeftOut.insert(found.m_vecLeftOut.end(), all.m_vecLeftOut.begin(),
                            all.m_vecLeftOut.end());
  found.m_nFiltered += all.m_nFiltered;
}

void CollectFiles(const std::string& path, const CFilter& filter, SLocalFiles& found) {
  std::error_code error;
  const fs::path top = fs::absolute(PathOf(path), error).lexically_normal();
  std::vector<std::string> components;
  if (fs::is_directory(top, error)) {
    Walk(top, components, filter, found);
  } else if (fs::is_regular_file(top, error)) {
    AddFile(top, {BytesOf(top.filename())}, found);
  } else {
    found.m_vecLeftOut.push_back({path, error ? error.message() : kNoFile, true});
  }
  KeepPicked(filter, found);
}
