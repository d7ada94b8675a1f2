#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "KQFTransferExport.h"
#include "transfer/DamageNote.h"
#include "transfer/Inventory.h"

/// Compares a project on a disk of this machine with its inventory. Reads
/// only.

enum class EVerdict {
  kSame,     ///< these bytes, by their digests
  kChanged,  ///< other bytes, or as many as cannot be read
  kMissing,  ///< in the inventory only
  kExtra,    ///< on the disk only
  kUnknown,  ///< nothing to compare with, or it could not be compared
};
constexpr std::size_t kVerdicts = 5;

struct SFileVerdict {
  std::string m_strPath;  ///< below the project; of a directory that cannot be read, too
  EVerdict m_eVerdict = EVerdict::kUnknown;
  std::int64_t m_llSize = 0;  ///< bytes on the disk
  std::string m_strWhy;       ///< where there is more to say than the verdict

  /// Which blocks differ, rising; of a changed file that has digests of blocks.
  std::vector<std::int64_t> m_vecBlocks;
};

struct KQFT_TRANSFER_API SProjectVerdict {
  std::string m_strWhy;  ///< "" or why there is nothing to compare with
  SInventoryHead m_head;
  std::array<std::size_t, kVerdicts> m_nFiles = {};  ///< by verdict
  CDamageNote m_damage;                              ///< files that are changed or missing
  bool m_bStopped = false;                           ///< a callback asked for it

  /// Another inventory was written meanwhile: what was found may be a file on
  /// its way.
  bool m_bMeanwhile = false;

  std::size_t Count(EVerdict verdict) const { return m_nFiles[static_cast<std::size_t>(verdict)]; }

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
