#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "KQFTransferExport.h"

struct SInventoryEntry;

/// Why a put sends a file, or does not.
enum class EReason {
  kNone,       ///< not of a put, or nothing is known yet
  kNew,        ///< the server has nothing of it
  kResumed,    ///< an earlier put, or the server, left a beginning of it
  kGrown,      ///< longer than it was; its beginning is the same
  kShortened,  ///< shorter than it was
  kChanged,    ///< other bytes than it had, or nothing tells which it had
  kDamaged,    ///< the server's copy is
  kUnchanged,  ///< not sent: size and time are as they were, or its bytes
  kEqual,      ///< not sent: as long as the server's copy; its bytes were not compared
};
constexpr std::size_t kReasons = 9;

/// One word, "" for kNone: "new", "resumed", "grown", "shortened", "changed",
/// "damaged", "unchanged", "equal".
KQFT_TRANSFER_API const char* ReasonName(EReason reason);

/// One file of a project that is to be moved, and what became of it.
struct STransferItem {
  std::string m_strLocal;     ///< file of this machine; of a get the finished one
  std::string m_strServer;    ///< its full name at the server, "\" separating
  std::string m_strShown;     ///< its name in messages: "PROJECT/dir/file"
  std::int64_t m_llSize = 0;  ///< bytes when it is whole

  /// Of a plan: how many of them are not at the other side.
  std::int64_t m_llMissing = 0;

  bool m_bDone = false;   ///< whole on both sides, as far as can be known
  bool m_bFinal = false;  ///< failed such that trying again is of no use
  bool m_bLater = false;  ///< not done because the file changes just now
  int m_nCode = 0;        ///< 1 when done; else of the last failure, 0 for none of the library's
  EReason m_eReason = EReason::kNone;  ///< of a put
  std::string m_strWhy;                ///< what failed last, in words; "" when nothing has yet

  /// The library's own: facts and digest of it, where they are known.
  std::shared_ptr<const SInventoryEntry> m_pEntry;
};
