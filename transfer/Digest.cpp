// Digests of file contents.
//
// Only this source and DigestAvx2.cpp see the hash functions: they are inlined
// here, and nothing of them shows in a header or among the library's symbols.

#include "transfer/Digest.h"

#define XXH_INLINE_ALL
#include <xxhash.h>

#include <algorithm>
#include <limits>

#include "platform/KQFile.h"
#include "transfer/DigestUpdate.h"

namespace {

// What is read at a time is still in the cache when it is looked at, and what
// is looked at is nearer still when the next digest takes it.
constexpr std::int64_t kReadBytes = 256LL << 10;
constexpr std::int64_t kPieceBytes = 16LL << 10;

constexpr char kDigits[] = "0123456789abcdef";

// Counts more bytes, with the fastest code that this processor has.
void Update(XXH3_state_t& state, const char* data, std::size_t size) {
#ifdef KQFT_HAS_DIGEST_AVX2
  static const bool s_hasAvx2 = __builtin_cpu_supports("avx2") != 0;
  if (s_hasAvx2) return UpdateWithAvx2(&state, data, size);
#endif
  XXH3_128bits_update(&state, data, size);
}

SDigest Take(const XXH128_hash_t& hash) {
  XXH128_canonical_t canonical;
  XXH128_canonicalFromHash(&canonical, hash);
  SDigest digest;
  std::copy(std::begin(canonical.digest), std::end(canonical.digest), digest.m_bytes.begin());
  return digest;
}

// Hands the bytes from `position` to `end` to `count`.
template <typename Count>
bool ReadInto(std::int64_t position, std::int64_t end, const DigestReader& reader,
              const Count& count) {
  if (position >= end) return true;
  std::vector<char> bytes(static_cast<std::size_t>(std::min(end - position, kReadBytes)));
  while (position < end) {
    const std::int64_t left = std::min(end - position, kReadBytes);
    const std::int64_t got = reader(position, bytes.data(), static_cast<std::size_t>(left));
    if (got <= 0 || got > left) return false;
    count(bytes.data(), static_cast<std::size_t>(got));
    position += got;
  }
  return true;
}

int DigitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

}  // namespace

std::string DigestText(const SDigest& digest) {
  std::string text;
  for (const unsigned char byte : digest.m_bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

bool ParseDigest(std::string_view text, SDigest& digest) {
  if (text.size() != 2 * digest.m_bytes.size()) return false;
  for (std::size_t i = 0; i < digest.m_bytes.size(); ++i) {
    const int high = DigitValue(text[2 * i]), low = DigitValue(text[2 * i + 1]);
    if (high < 0 || low < 0) return false;
    digest.m_bytes[i] = static_cast<unsigned char>(high << 4 | low);
  }
  return true;
}

SDigest DigestOf(std::string_view bytes) {
  return Take(XXH3_128bits(bytes.data(), bytes.size()));
}

std::vector<std::int64_t> DifferingBlocks(const SFileDigest& one, const SFileDigest& other) {
  const std::size_t both = std::min(one.m_vecBlocks.size(), other.m_vecBlocks.size());
  const std::size_t most = std::max(one.m_vecBlocks.size(), other.m_vecBlocks.size());
  std::vector<std::int64_t> blocks;
  for (std::size_t i = 0; i < most; ++i) {
    if (i < both && one.m_vecBlocks[i] == other.m_vecBlocks[i]) continue;
    blocks.push_back(static_cast<std::int64_t>(i));
  }
  return blocks;
}

DigestReader ReadsFile(const std::string& path) {
  const auto file = std::make_shared<CKQFile>();
  return [file, path](std::int64_t position, char* data, std::size_t size) -> std::int64_t {
    if (!file->IsOpen() && !file->KQOpen(path, "rb")) return -1;
    if (!file->Seek(position)) return -1;
    constexpr std::size_t kMost = std::numeric_limits<int>::max();
    return file->Read(data, static_cast<int>(std::min(size, kMost)));
  };
}

bool DigestPart(std::int64_t position, std::int64_t size, const DigestReader& reader,
                SDigest& digest) {
  XXH3_state_t state;
  XXH3_128bits_reset(&state);
  const bool whole =
      ReadInto(position, position + size, reader,
               [&](const char* data, std::size_t bytes) { Update(state, data, bytes); });
  digest = Take(XXH3_128bits_digest(&state));
  return whole;
}

struct CFileDigest::SState {
  XXH3_state_t m_whole;
  XXH3_state_t m_block;
  std::int64_t m_llCounted = 0;
  std::vector<SDigest> m_vecBlocks;  // whole ones

  SState() {
    XXH3_128bits_reset(&m_whole);
    XXH3_128bits_reset(&m_block);
  }

  void Count(const char* data, std::size_t size) {
    while (size > 0) {
      const std::int64_t inBlock = kDigestBlockBytes - m_llCounted % kDigestBlockBytes;
      const auto piece = static_cast<std::size_t>(
          std::min({static_cast<std::int64_t>(size), inBlock, kPieceBytes}));
      Update(m_whole, data, piece);
      Update(m_block, data, piece);
      m_llCounted += static_cast<std::int64_t>(piece);
      if (m_llCounted % kDigestBlockBytes == 0) EndBlock();
      data += piece;
      size -= piece;
    }
  }

  void EndBlock() {
    m_vecBlocks.push_back(Take(XXH3_128bits_digest(&m_block)));
    XXH3_128bits_reset(&m_block);
  }
};

CFileDigest::CFileDigest() : m_pState(std::make_unique<SState>()) {}
CFileDigest::CFileDigest(CFileDigest&& other) noexcept = default;
CFileDigest& CFileDigest::operator=(CFileDigest&& other) noexcept = default;
CFileDigest::~CFileDigest() = default;

void CFileDigest::Add(std::int64_t position, const char* data, std::size_t size) {
  const std::int64_t again = m_pState->m_llCounted - position;
  if (again < 0 || again >= static_cast<std::int64_t>(size)) return;
  m_pState->Count(data + again, size - static_cast<std::size_t>(again));
}

std::int64_t CFileDigest::Counted() const {
  return m_pState->m_llCounted;
}

const std::vector<SDigest>& CFileDigest::Blocks() const {
  return m_pState->m_vecBlocks;
}

bool CFileDigest::ReadTo(std::int64_t position, const DigestReader& reader) {
  return ReadInto(m_pState->m_llCounted, position, reader,
                  [this](const char* data, std::size_t size) { m_pState->Count(data, size); });
}

SFileDigest CFileDigest::SoFar() const {
  SFileDigest digest;
  digest.m_whole = Take(XXH3_128bits_digest(&m_pState->m_whole));
  if (DigestBlocks(m_pState->m_llCounted) == 0) return digest;
  digest.m_vecBlocks = m_pState->m_vecBlocks;
  if (m_pState->m_llCounted % kDigestBlockBytes != 0) {
    digest.m_vecBlocks.push_back(Take(XXH3_128bits_digest(&m_pState->m_block)));
  }
  return digest;
}

bool CFileDigest::Finish(std::int64_t size, const DigestReader& reader, SFileDigest& digest) {
  const bool whole = ReadTo(size, reader) && m_pState->m_llCounted == size;
  if (whole) digest = SoFar();
  m_pState = std::make_unique<SState>();
  return whole;
}
