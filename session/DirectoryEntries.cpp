// Directory entries: which of them need no flush any more.

#include "session/DirectoryEntries.h"

#include <algorithm>

namespace {

constexpr std::size_t kMostKnown = 10000;  // then it begins anew, which costs flushes only

// One name for one directory, as far as a name tells.
std::string Plain(std::string directory) {
  std::replace(directory.begin(), directory.end(), '\\', '/');
  directory.erase(std::unique(directory.begin(), directory.end(),
                              [](char a, char b) { return a == '/' && b == '/'; }),
                  directory.end());
  return directory;
}

}  // namespace

CDirectoryEntries& CDirectoryEntries::OfProcess() {
  static CDirectoryEntries entries;
  return entries;
}

void CDirectoryEntries::Forget(const std::string& directory) {
  const std::string name = Plain(directory);
  const std::lock_guard lock(m_mutex);
  ++m_ullMade;
  const auto begin = m_known.lower_bound(name);
  m_known.erase(begin, std::find_if(begin, m_known.end(), [&](const std::string& known) {
                  return known.compare(0, name.size(), name) != 0;
                }));
}

std::uint64_t CDirectoryEntries::Moment() const {
  const std::lock_guard lock(m_mutex);
  return m_ullMade;
}

bool CDirectoryEntries::Has(const std::string& directory) const {
  const std::string name = Plain(directory);
  const std::lock_guard lock(m_mutex);
  return m_known.count(name) > 0;
}

void CDirectoryEntries::Add(const std::vector<std::string>& directories, std::uint64_t moment) {
  const std::lock_guard lock(m_mutex);
  if (moment != m_ullMade) return;
  if (m_known.size() > kMostKnown) m_known.clear();
  for (const std::string& directory : directories) m_known.insert(Plain(directory));
}
