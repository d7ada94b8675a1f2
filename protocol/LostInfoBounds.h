#pragma once

#include <cstddef>

/// Bounds of one answer to 2509. A side file that claims more than either is
/// answered as one that cannot be read: a corrupt count must not fill the
/// memory or keep the link busy.

/// Ranges, and as many sizes: no configuration file holds more keys.
constexpr int kMostLostRanges = 1000000;

/// Bytes of the list of ranges, and of the list of sizes. Some 400,000 ranges
/// fit, beyond what a client could ask to have resent one by one.
constexpr std::size_t kMostLostListBytes = std::size_t{8} << 20;
