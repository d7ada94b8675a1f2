#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "KQFTransferExport.h"
#include "transfer/DamageNote.h"
#include "transfer/Inventory.h"
#include "transfer/Verdict.h"

/// Compares a project on a disk of this machine with its inventory. Reads
/// only.

struct KQFT_TRANSFER_API SProjectVerdict {
  std::string m_strWhy;  ///< "" or why there is nothing to compare with
  SInventoryHead m_head;
  VerdictCounts m_counts = {};
  CDamageNote m_damage;     ///< files that are changed or missing
  bool m_bStopped = false;  ///< a callback asked for it

  /// Another inventory was written meanwhile: what was found may be a file on
  /// its way.
  bool m_bMeanwhile = false;

  /// True when it was compared to its end and every file is the same.
  bool IsSame() const;
};

/// Called by the threads of a check, one call at a time: they wait. They must
/// not throw.
struct SCheckCalls {
  std::function<void(const SFileVerdict&)> m_onFile;

  /// Of the bytes that are to be read, about once for 4 MiB.
  /// @return false to stop
  std::function<bool(std::int64_t done, std::int64_t total)> m_onBytes;
};

/// Reads the newest whole inventory of a project.
/// @return "" or why there is none
/// Blocks:  for two local files.
KQFT_TRANSFER_API std::string ReadInventory(const std::string& directory, CInventory& inventory);

/// Checks one project. Sizes and digests decide; times and modes need not be
/// those of the workstation. A file with digests of blocks is compared by
/// them, which say as much. A recording in segments or with missing ranges
/// beside it is unknown. Symbolic links to files are followed.
///
/// @param threads so many read at a time, the caller's among them
/// Blocks: until all is read, or a callback stops it.
KQFT_TRANSFER_API SProjectVerdict CheckProject(const std::string& directory, int threads,
                                               const SCheckCalls& calls);
