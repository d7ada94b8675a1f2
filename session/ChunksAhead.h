#pragma once

#include <array>
#include <cstdint>

#include "platform/System.h"

class CFileHandle;

/// Writes the chunks of an upload, and where several have arrived at once, all
/// of them in one call: on a distributed file system a call costs more than
/// what it writes.
///
/// A chunk that was written ahead gets its turn all the same, so that nothing
/// but the number of calls depends on what arrives together.
///
/// Threads: the delivery thread of the session, while it handles a packet.
class CChunksAhead {
 public:
  /// Looks for chunks that have arrived behind this one and go on where it ends.
  void Look(std::int64_t position, const char* data, int bytes);

  /// Bytes from its beginning to that of the last one: 0 where there are none,
  /// or it is written already.
  std::int64_t Reach() const { return m_llReach; }

  /// Writes the chunk that was looked at, with those behind it.
  /// @return whether it is written; of the others a part may be
  bool Write(CFileHandle& file, std::int64_t position, const char* data, int bytes);

  /// What was written ahead is not to be relied on: a chunk was not stored, or
  /// the file is another one.
  void Forget() { m_ullNext = 0; }

 private:
  static constexpr std::size_t kMostParts = 16;

  bool IsWritten(std::int64_t position, const char* data, int bytes) const;

  std::array<SWritePart, kMostParts> m_parts;  // from Look to Write
  int m_nParts = 0;
  std::int64_t m_llReach = 0;
  std::uintptr_t m_ullNext = 0;  // where the next chunk that is written lies; 0: none is
  std::int64_t m_llNext = 0;     // its position in the file
  std::int64_t m_llEnd = 0;      // behind all that is written
};
