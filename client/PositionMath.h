#pragma once

#include <cstdint>

/// Sums of file positions of which one came from the server and may be
/// anything: they wrap instead of overflowing. The result is checked where a
/// file is positioned by it.

inline std::int64_t AddPositions(std::int64_t a, std::int64_t b) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) + static_cast<std::uint64_t>(b));
}

inline std::int64_t SubtractPositions(std::int64_t a, std::int64_t b) {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) - static_cast<std::uint64_t>(b));
}
