#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "KQFTransferExport.h"
#include "transfer/Digest.h"
#include "transfer/FileFacts.h"
#include "transfer/ProjectPath.h"

/// What a project consists of, and which bytes it had: a text file in the
/// project's directory, an ordinary file for the server.
///
/// `xxhsum -c kqft.inventory`, called in that directory, checks every file of
/// a complete one (but those with a line end in their name). The lines:
///
///     # kqft.inventory 1
///     # generation 7
///     # state complete                         or planned
///     # run 5f0c-77                            words of the writer's choice
///     # by user@host
///     # at 2026-03-09T14:05:11Z                last sign of life
///     # file 10 1772978711000000001 644        size, time in ns, mode
///     00112233445566778899aabbccddeeff  notes.txt
///     # file 99 1772978711000000000 600 a/not%20yet
///     # file 98 1772978711000000000 600 a%0Ab 00112233445566778899aabbccddeeff
///     # file 98 - 600 run.tm
///     # end 00112233445566778899aabbccddeeff
///
/// A name stands in its "# file" line, escaped, when no digest is known or it
/// holds a line end (the digest stands behind it then). A file that is longer
/// than kBlocksAboveBytes has lines "# blocks" behind its "# file" with up to
/// 16 digests each. A "-" in the place of the time: the bytes there are of no
/// one version, or it is not known of which. The last line is the digest of all lines before it.
///
/// Files are sorted by name. Names are those below the project, "/" between
/// their parts, and any bytes otherwise, but for zero bytes and "\".

/// In a planned one a recording without a digest is on its way: what lies there
/// is a beginning of the version that has this size and time. In a complete
/// one nobody has taken its digest; of these files only the length is known.
///
/// It lies in two places, kInventoryName and kOtherInventoryName, which
/// ChooseInventory chooses from.

/// Bounds of what is read: longer texts, more files and names longer than
/// kLongestProjectPath are refused. So the longest one that is read takes less
/// than 512 MiB of memory; one of 10,000 short files some 5 MiB.
constexpr std::size_t kMostInventoryBytes = 128U << 20;
constexpr std::size_t kMostInventoryFiles = 1000000;

struct SInventoryEntry {
  SFileFacts m_facts;
  bool m_bDigest = false;  ///< else m_digest says nothing
  SFileDigest m_digest;
  bool m_bMixed = false;  ///< of no one version; there is no digest and no time then
};

/// What stands in front of the files.
struct SInventoryHead {
  std::int64_t m_llGeneration = 0;  ///< the newest one has the highest
  bool m_bComplete = false;         ///< else planned: the run has not ended
  std::string m_strRun;             ///< names the run that wrote it
  std::string m_strBy;              ///< user@host
  std::int64_t m_llAlive = 0;       ///< last sign of life, seconds since 1970
};

/// Threads: one at a time; readers of a const one any number.
class KQFT_TRANSFER_API CInventory {
 public:
  using Files = std::map<std::string, SInventoryEntry, std::less<>>;

  SInventoryHead m_head;

  const Files& GetFiles() const { return m_mapFiles; }

  /// Null when there is none of that name.
  const SInventoryEntry* Find(std::string_view path) const;

  /// Adds a file, or replaces what was known of it.
  /// @return "" or why it cannot be in an inventory
  std::string Set(const std::string& path, const SInventoryEntry& entry);

  void Remove(const std::string& path) { m_mapFiles.erase(path); }

  /// Takes over the files that another run has written meanwhile.
  /// @param isMine true for a file that this run has sent: its entry stays.
  ///               Every other one of `theirs` is taken.
  void MergeFrom(const CInventory& theirs, const std::function<bool(const std::string&)>& isMine);

  /// The text of it. One that is longer than kMostInventoryBytes could not be
  /// read: the caller looks.
  std::string Text() const;

  /// Reads a text; what was here before goes.
  /// @return "" or what is wrong with it; the inventory is then empty
  std::string Parse(std::string_view text);

 private:
  Files m_mapFiles;
};

/// A time as an inventory has it, 2026-03-09T14:05:11Z.
KQFT_TRANSFER_API std::string InventoryTime(std::int64_t seconds);

/// Of a planned one: who writes to the project, and when that was heard of last.
KQFT_TRANSFER_API std::string WhoIsSending(const SInventoryHead& head);

/// Which of two places holds the newest inventory, and where the next goes.
struct SInventoryChoice {
  bool m_bFound = false;       ///< either is whole
  CInventory m_inventory;      ///< the newest whole one
  std::string m_strPlace;      ///< where that lies; "" when none is whole
  std::string m_strNextPlace;  ///< where the next one is to be written
};

/// Chooses from the texts of both places; "" stands for a missing one. The
/// next one replaces the older or torn one, so that writing it never costs
/// the newest that is whole, wherever it is cut off.
///
/// A complete one should lie in kInventoryName, where others look for it. So
/// the first one of all goes to the other place; and one whose turn is there
/// is written twice: then, a generation later, to kInventoryName.
KQFT_TRANSFER_API SInventoryChoice ChooseInventory(std::string_view first, std::string_view other);
