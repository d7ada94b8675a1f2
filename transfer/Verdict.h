#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// What a comparison of a project's files finds out.

enum class EVerdict {
  kSame,     ///< these bytes, by their digests
  kChanged,  ///< other bytes, or as many as cannot be read
  kMissing,  ///< it should be there and is not
  kExtra,    ///< it is there, and nothing tells of it
  kUnknown,  ///< nothing to compare with, or it could not be compared
};
constexpr std::size_t kVerdicts = 5;

/// How many files have each verdict.
using VerdictCounts = std::array<std::size_t, kVerdicts>;

struct SFileVerdict {
  std::string m_strPath;  ///< below the project; of a directory that cannot be read, too
  EVerdict m_eVerdict = EVerdict::kUnknown;
  std::int64_t m_llSize = 0;  ///< bytes that are there
  std::string m_strWhy;       ///< where there is more to say than the verdict

  /// Which blocks differ, rising; of a changed file that has digests of blocks.
  std::vector<std::int64_t> m_vecBlocks;
};

/// The word for a verdict: "same", "changed", "missing", "extra", "unknown".
inline const char* VerdictName(EVerdict verdict) {
  constexpr const char* kNames[kVerdicts] = {"same", "changed", "missing", "extra", "unknown"};
  return kNames[static_cast<std::size_t>(verdict)];
}

/// True when no file has another verdict.
inline bool AreAllSame(const VerdictCounts& counts) {
  for (std::size_t i = 1; i < kVerdicts; ++i) {
    if (counts[i] > 0) return false;
  }
  return true;
}
