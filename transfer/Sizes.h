#pragma once

#include <cstdint>
#include <string>

/// Sizes that a peer tells: any number, until it was looked at.

/// The sum, or the largest number that there is. `b` is not negative.
inline std::int64_t AddSizes(std::int64_t a, std::int64_t b) {
  return b > 0 && a > INT64_MAX - b ? INT64_MAX : a + b;
}

/// What is wrong with a negative size.
inline std::string WhyNoSize(std::int64_t size) {
  return "the server tells a size that cannot be (" + std::to_string(size) + " bytes)";
}
