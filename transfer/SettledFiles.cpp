// Settled files: which have been left alone for a while.

#include "transfer/SettledFiles.h"

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <utility>

#include "platform/PathBytes.h"
#include "platform/System.h"
#include "protocol/MeasurementFiles.h"

namespace {

const char* const kChanges = "it has changed again";
const char* const kWritten = "it is open for writing";

// False also where the system cannot tell.
bool IsOpenForWriting(const std::string& path) {
  bool any = false;
  return System().QueryWriters(path, any) == ESystemError::kNone && any;
}

// Renamed or removed while it was looked at.
bool IsGone(const std::string& path) {
  std::error_code error;
  return std::filesystem::symlink_status(PathOf(path), error).type() ==
         std::filesystem::file_type::not_found;
}

}  // namespace

CSettledFiles::CSettledFiles(std::string directory, CFilter filter, std::int64_t settleMs)
    : m_strDirectory(std::move(directory)), m_filter(std::move(filter)), m_llSettleMs(settleMs) {}

std::vector<SLeftOut> CSettledFiles::Look() {
  SLocalFiles found;
  CollectFiles(m_strDirectory, m_filter, found);
  const std::int64_t now = System().SteadyMilliseconds();
  std::map<std::string, SSeen> files;
  for (const SLocalFile& file : found.m_vecFiles) {
    if (!file.m_strWhyNot.empty() && IsGone(file.m_strPath)) continue;
    if (!file.m_strWhyNot.empty()) {
      found.m_vecLeftOut.push_back({file.m_strPath, file.m_strWhyNot, true});
      continue;
    }
    SSeen& seen = files[file.m_strPath];
    const auto before = m_mapFiles.find(file.m_strPath);
    if (before != m_mapFiles.end()) seen = std::move(before->second);
    LookAt(file, now, seen);
  }
  m_mapFiles = std::move(files);
  std::set<std::string> told;
  std::vector<SLeftOut> added;
  for (SLeftOut& left : found.m_vecLeftOut) {
    if (!left.m_bProblem && IsGone(left.m_strPath)) continue;
    told.insert(left.m_strPath);
    if (!m_told.contains(left.m_strPath)) added.push_back(std::move(left));
  }
  m_told = std::move(told);
  return added;
}

void CSettledFiles::LookAt(const SLocalFile& file, std::int64_t now, SSeen& seen) const {
  const bool isNew = seen.m_strBelow.empty();
  SFileFacts facts;
  const bool known = ReadFileFacts(file.m_strPath, facts).empty();
  if (isNew) seen.m_strBelow = PathBelow(file);
  const bool wasOpen = seen.m_bOpen;
  seen.m_bOpen = known && seen.m_handled != facts && IsOpenForWriting(file.m_strPath);
  const bool changed = isNew || !known || !(facts == seen.m_facts);
  if (changed || wasOpen || seen.m_bOpen) seen.m_llSinceMs = now;
  seen.m_facts = facts;
  seen.m_bSettled = known && !seen.m_bOpen && now - seen.m_llSinceMs >= m_llSettleMs;
}

std::vector<std::string> CSettledFiles::Due() const {
  std::map<std::string, const SSeen*> all;
  std::set<std::string> due, waiting;
  for (const auto& [path, seen] : m_mapFiles) {
    all[seen.m_strBelow] = &seen;
    if (seen.m_bSettled && seen.m_handled != seen.m_facts) due.insert(seen.m_strBelow);
  }
  for (const auto& [side, seen] : all) {
    if (!IsSideFile(side)) continue;
    const std::string stem = SideFileName(side, "");
    std::vector<std::string> group = {side};
    for (auto at = all.lower_bound(stem);
         at != all.end() && at->first.compare(0, stem.size(), stem) == 0; ++at) {
      if (IsSideFileOf(side, at->first)) group.push_back(at->first);
    }
    const bool settled = std::all_of(
        group.begin(), group.end(), [&](const std::string& name) { return all[name]->m_bSettled; });
    const bool goes = std::any_of(group.begin(), group.end(),
                                  [&](const std::string& name) { return due.contains(name); });
    if (!settled) waiting.insert(group.begin(), group.end());
    if (goes) due.insert(side);
  }
  std::vector<std::string> names;
  std::set_difference(due.begin(), due.end(), waiting.begin(), waiting.end(),
                      std::back_inserter(names));
  return names;
}

std::string CSettledFiles::WhyLater(const std::string& path) const {
  const auto seen = m_mapFiles.find(path);
  SFileFacts now;
  if (seen == m_mapFiles.end() || !ReadFileFacts(path, now).empty() ||
      !(now == seen->second.m_facts)) {
    return kChanges;
  }
  return IsOpenForWriting(path) ? kWritten : "";
}

void CSettledFiles::Handled(const std::string& path) {
  const auto seen = m_mapFiles.find(path);
  if (seen != m_mapFiles.end()) seen->second.m_handled = seen->second.m_facts;
}
