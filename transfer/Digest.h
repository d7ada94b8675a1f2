#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "KQFTransferExport.h"

/// Digests of file contents: XXH3, 128 bits, written as `xxhsum -H2` does.
/// They tell damage and changes, not forgeries.

/// Files are told apart by pieces of this length.
constexpr std::int64_t kDigestBlockBytes = 4LL << 20;

/// Files that are longer than this have a digest for each block as well.
constexpr std::int64_t kBlocksAboveBytes = 64LL << 20;

/// One digest, the first byte the most significant one.
struct SDigest {
  std::array<unsigned char, 16> m_bytes = {};
  friend bool operator==(const SDigest& a, const SDigest& b) { return a.m_bytes == b.m_bytes; }
  friend bool operator!=(const SDigest& a, const SDigest& b) { return !(a == b); }
};

/// 32 hexadecimal digits in lower case; and back, false for any other text.
KQFT_TRANSFER_API std::string DigestText(const SDigest& digest);
KQFT_TRANSFER_API bool ParseDigest(std::string_view text, SDigest& digest);

KQFT_TRANSFER_API SDigest DigestOf(std::string_view bytes);

/// Of a whole file.
struct SFileDigest {
  SDigest m_whole;
  std::vector<SDigest> m_vecBlocks;  ///< empty up to kBlocksAboveBytes
  friend bool operator==(const SFileDigest& a, const SFileDigest& b) {
    return a.m_whole == b.m_whole && a.m_vecBlocks == b.m_vecBlocks;
  }
};

/// Which blocks differ of two files, rising; what only one of them has differs.
KQFT_TRANSFER_API std::vector<std::int64_t> DifferingBlocks(const SFileDigest& one,
                                                            const SFileDigest& other);

/// How many blocks a file of that size has digests of.
constexpr std::int64_t DigestBlocks(std::int64_t size) {
  return size > kBlocksAboveBytes ? (size - 1) / kDigestBlockBytes + 1 : 0;
}

/// Reads what lies at `position`.
/// @return bytes read, fewer than `size` only at the end of the file; negative
///         when it cannot be read
using DigestReader =
    std::function<std::int64_t(std::int64_t position, char* data, std::size_t size)>;

/// Reads from a file of this machine. It is opened at once and closed with
/// the last copy of the reader; one that cannot be opened reads -1.
KQFT_TRANSFER_API DigestReader ReadsFile(const std::string& path);

/// Reads `size` bytes from `position` and takes their digest.
/// @return false when they cannot be read
KQFT_TRANSFER_API bool DigestPart(std::int64_t position, std::int64_t size,
                                  const DigestReader& reader, SDigest& digest);

/// The digests of one file, taken of what passes.
///
/// Bytes may pass in pieces of any length. What continues the file counts as
/// it passes, at no more cost than a look at it. What passes again is not
/// counted twice, and what passes ahead of its turn is not kept: Finish reads
/// that from the disk. So the result is right in any order, and without a
/// second reading where the order is the file's. Of a transfer that goes on
/// with an earlier one, count what was there before with ReadTo.
///
/// Threads: one at a time.
class KQFT_TRANSFER_API CFileDigest {
 public:
  CFileDigest();
  CFileDigest(CFileDigest&& other) noexcept;
  CFileDigest& operator=(CFileDigest&& other) noexcept;
  ~CFileDigest();

  void Add(std::int64_t position, const char* data, std::size_t size);

  /// Counted are the bytes in front of this position.
  std::int64_t Counted() const;

  /// Of the whole blocks in front of it.
  const std::vector<SDigest>& Blocks() const;

  /// Reads and counts what is missing up to `position`.
  /// @return false when it cannot be read, or the file ends before
  /// Blocks:  for as long as the reader does.
  bool ReadTo(std::int64_t position, const DigestReader& reader);

  /// The digests of what is counted, as if the file ended there.
  SFileDigest SoFar() const;

  /// Takes the digests of the `size` bytes that the file has, and begins anew.
  /// @param reader asked for what did not pass in its turn
  /// @return false when that cannot be read, or more than `size` has passed
  bool Finish(std::int64_t size, const DigestReader& reader, SFileDigest& digest);

 private:
  struct SState;
  std::unique_ptr<SState> m_pState;  // used by one thread at a time
};
