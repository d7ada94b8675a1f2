#pragma once

#include <cstdint>
#include <memory>
#include <string>

struct SInventoryEntry;

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
  int m_nCode = 0;        ///< 1 when done; else of the last failure, 0 for none of the library's
  std::string m_strWhy;   ///< what failed last, in words; "" when nothing has yet

  /// The library's own: facts and digest of it, where they are known.
  std::shared_ptr<const SInventoryEntry> m_pEntry;
};
