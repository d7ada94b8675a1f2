#pragma once

#include <cstdint>
#include <string_view>

/// FNV-1a of 64 bits: the same for a text on every machine. Tells
/// texts apart, protects against nobody.
constexpr std::uint64_t TextHash(std::string_view text) {
  std::uint64_t hash = 0xcbf29ce484222325U;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3U;
  return hash;
}
