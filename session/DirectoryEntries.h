#pragma once

#include <cstdint>
#include <mutex>
#include <set>
#include <string>
#include <vector>

/// Directories that were flushed, with all on the way to them from the server's
/// own one, since this process runs. Whoever makes one brings it to the disk with
/// the first file in it; but others put files in it meanwhile, or go on with what
/// a process has left that was ended. So what is found there counts only then.
///
/// Names are as the paths of files begin: a separator stands at their end.
///
/// Threads: any.
class CDirectoryEntries {
 public:
  static CDirectoryEntries& OfProcess();

  /// Call before a directory is made: what is known of its name, and of all
  /// below it, is of another one.
  void Forget(const std::string& directory);

  /// Call before the flushes that Add tells of.
  std::uint64_t Moment() const;

  bool Has(const std::string& directory) const;

  /// These were flushed since the moment. Without effect when directories were
  /// made since.
  void Add(const std::vector<std::string>& directories, std::uint64_t moment);

 private:
  mutable std::mutex m_mutex;
  std::set<std::string> m_known;  // guarded by m_mutex
  std::uint64_t m_ullMade = 0;    // guarded by m_mutex
};
