#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "KQFTransferExport.h"

/// Where a server notes what of a project it found damaged, for the next put
/// to heal: a text in the project's directory. The lines:
///
///     # kqft.damaged 1
///     notes.txt                 the whole file, also one that is missing
///     a/run%201.tm 3 17         these blocks of it, counted from 0
///     # end 00112233445566778899aabbccddeeff
///
/// Names are escaped as in an inventory, blocks those that it has digests of.
/// It is called kDamageNoteName.

/// Longer texts are refused.
constexpr std::size_t kMostDamageBytes = 16U << 20;

class KQFT_TRANSFER_API CDamageNote {
 public:
  /// By name, the blocks that are damaged, rising; none means the whole file.
  using Files = std::map<std::string, std::vector<std::int64_t>>;

  const Files& GetFiles() const { return m_mapFiles; }

  /// @return "" or why that cannot be noted
  std::string Set(const std::string& path, const std::vector<std::int64_t>& blocks);

  void Remove(const std::string& path) { m_mapFiles.erase(path); }

  /// The text of it. Where there would be more of it than is read again, all
  /// files stand in it without their blocks.
  std::string Text() const;

  /// Reads a text; what was here before goes.
  /// @return "" or what is wrong with it; the note is then empty
  std::string Parse(std::string_view text);

 private:
  Files m_mapFiles;
};

/// Puts a note in the place of that of an earlier check; an empty one removes
/// it. One that is cut off while it is written is recognised as torn.
/// @return "" or why it could not
KQFT_TRANSFER_API std::string LeaveDamageNote(const std::string& directory,
                                              const CDamageNote& note);
