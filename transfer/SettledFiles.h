#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "transfer/FileFacts.h"
#include "transfer/Filter.h"
#include "transfer/LocalFiles.h"

/// Which files below a directory have been left alone for a while: no change
/// of size and time, and nobody had them open for writing, where the system can
/// tell. Looking is all that it does, so it works on every file system.
class CSettledFiles {
 public:
  /// @param settleMs so long a file has to be seen unchanged
  CSettledFiles(std::string directory, CFilter filter, std::int64_t settleMs);

  /// Looks at all of them. @return what a walk left out and did not leave out
  /// at the look before
  std::vector<SLeftOut> Look();

  /// Those that have settled and were not handled as they are, by their names
  /// below the directory. A recording and its side files settle together, and
  /// the side files go along with it.
  std::vector<std::string> Due() const;

  /// Why a file is no more as it was when it had settled; "" when it is.
  /// @param path as SLocalFile has it
  std::string WhyLater(const std::string& path) const;

  /// A file need not be due again until it changes.
  void Handled(const std::string& path);

  std::size_t Count() const { return m_mapFiles.size(); }

 private:
  struct SSeen {
    std::string m_strBelow;  // its name below the directory
    SFileFacts m_facts;
    std::int64_t m_llSinceMs = 0;  // has been like this at least since
    bool m_bOpen = false;          // for writing, at the last look
    bool m_bSettled = false;
    std::optional<SFileFacts> m_handled;
  };
  void LookAt(const SLocalFile& file, std::int64_t now, SSeen& seen) const;

  const std::string m_strDirectory;
  const CFilter m_filter;
  const std::int64_t m_llSettleMs;
  std::map<std::string, SSeen> m_mapFiles;  // by path
  std::set<std::string> m_told;             // paths that were left out
};
