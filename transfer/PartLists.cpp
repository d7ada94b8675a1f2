// Part lists: what is left of downloads that did not end.

#include "transfer/PartLists.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "platform/PathBytes.h"
#include "transfer/TargetDirectories.h"

namespace fs = std::filesystem;

namespace {

// True for what PartName makes of the file name and some size.
bool IsPartOf(const std::string& entry, const std::string& fileName) {
  const std::string ending = ".part";
  if (entry.size() <= fileName.size() + 1 + ending.size()) return false;
  if (entry.compare(0, fileName.size() + 1, fileName + ".") != 0) return false;
  const std::size_t digitsEnd = entry.size() - ending.size();
  if (entry.compare(digitsEnd, ending.size(), ending) != 0) return false;
  return std::all_of(entry.begin() + static_cast<std::ptrdiff_t>(fileName.size()) + 1,
                     entry.begin() + static_cast<std::ptrdiff_t>(digitsEnd),
                     [](char c) { return c >= '0' && c <= '9'; });
}

std::string DirectoryOf(const STransferItem& item) {
  return item.m_strLocal.substr(0, item.m_strLocal.find_last_of("\\/") + 1);
}

std::string PartNameOf(const STransferItem& item) {
  return PartPath(item).substr(DirectoryOf(item).size());
}

}  // namespace

const CPartLists::SList& CPartLists::In(const STransferItem& item) {
  const std::string directory = DirectoryOf(item);
  const auto [found, isNew] = m_lists.try_emplace(directory);
  SList& list = found->second;
  if (!isNew) return list;
  std::error_code error;
  for (fs::directory_iterator entry(PathOf(directory), error), end; !error && entry != end;
       entry.increment(error)) {
    if (entry->path().extension() == ".part") {
      list.m_parts.insert(BytesOf(entry->path().filename()));
    }
  }
  list.m_bThere = error != std::errc::no_such_file_or_directory;
  list.m_bKnown = !error;
  return list;
}

bool CPartLists::MayHave(const STransferItem& item) {
  const SList& list = In(item);
  return list.m_bThere && (!list.m_bKnown || list.m_parts.contains(PartNameOf(item)));
}

void CPartLists::RemoveStale(const STransferItem& item) {
  const fs::path directory = PathOf(DirectoryOf(item));
  const std::string name = item.m_strLocal.substr(DirectoryOf(item).size());
  const std::string valid = PartNameOf(item);
  const std::set<std::string>& parts = In(item).m_parts;
  for (auto part = parts.lower_bound(name + "."); part != parts.end(); ++part) {
    if (part->compare(0, name.size(), name) != 0) break;
    std::error_code ignored;
    if (*part != valid && IsPartOf(*part, name)) fs::remove(directory / PathOf(*part), ignored);
  }
}
