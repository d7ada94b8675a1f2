// Recordings in pieces, by the side files beside them.

#include "transfer/LocalRecording.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>

#include "platform/PathBytes.h"
#include "transfer/SealedText.h"

namespace fs = std::filesystem;

namespace {

constexpr std::uintmax_t kMostSideFileBytes = 64U << 20;

// "key = value" as the application writes it: the value, when the lowered key
// begins so.
bool TakeValue(std::string_view line, std::string_view key, std::string& value) {
  std::string plain;
  for (const char c : line) {
    if (static_cast<unsigned char>(c) > ' ') {
      plain += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    }
  }
  std::string_view rest = plain;
  if (!TakeFront(rest, key)) return false;
  TakeUpTo(rest, '=');
  value = rest;
  return true;
}

// True when a line of the file has such a key and a value that holds.
template <typename Holds>
bool HasValue(const fs::path& path, std::string_view key, const Holds& holds) {
  std::ifstream file(path, std::ios::binary);
  std::string value;
  for (std::string line; std::getline(file, line);) {
    if (TakeValue(line, key, value) && holds(value)) return true;
  }
  return false;
}

}  // namespace

std::string WhyInPieces(const std::string& path) {
  const auto beside = [&](const char* ending) { return PathOf(path).replace_extension(ending); };
  std::error_code ignored;
  if (PathOf(path) == beside(".li") || PathOf(path) == beside(".fi")) return "";
  if (!fs::is_regular_file(beside(".li"), ignored)) return "";
  for (const char* const ending : {".li", ".fi"}) {
    const std::uintmax_t size = fs::file_size(beside(ending), ignored);
    if (!ignored && size > kMostSideFileBytes) return "its side files are too long";
  }
  // "position,length"; one that was filled has length 0.
  const auto isOpen = [](std::string_view range) {
    std::int64_t length = 0;
    TakeUpTo(range, ',');
    return !ParseNumber(range, length) || length != 0;
  };
  if (HasValue(beside(".li"), "lost_info_", isOpen)) return "ranges of it are missing";
  const auto isAny = [](std::string_view size) { return !size.empty(); };
  return HasValue(beside(".fi"), "size", isAny) ? "it lies in segments" : "";
}

std::string StemOfPiece(const std::string& path) {
  const fs::path file = PathOf(path);
  const std::string extension = BytesOf(file.extension());
  std::string stem = BytesOf(fs::path(file).replace_extension());
  std::replace(stem.begin(), stem.end(), static_cast<char>(fs::path::preferred_separator), '/');
  if (extension == ".li" || extension == ".fi") return stem;
  const std::size_t open = stem.rfind('(');
  if (open == std::string::npos || stem.back() != ')') return "";
  std::int64_t number = 0;
  const std::string_view digits = std::string_view(stem).substr(open + 1, stem.size() - open - 2);
  return ParseNumber(digits, number) && number > 0 ? stem.substr(0, open) : "";
}
