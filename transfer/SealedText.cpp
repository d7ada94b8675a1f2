// Sealed text: lines, escaped names, and the digest at the end.

#include "transfer/SealedText.h"

#include <charconv>

#include "transfer/Digest.h"

namespace {

constexpr std::string_view kEnd = "# end ";
constexpr std::size_t kDigestDigits = 32;
constexpr char kDigits[] = "0123456789ABCDEF";

bool MustEscape(unsigned char c) {
  return c <= ' ' || c == '%' || c == 0x7F;
}

}  // namespace

std::string Seal(std::string text) {
  const std::string digest = DigestText(DigestOf(text));
  return text.append(kEnd).append(digest).append("\n");
}

bool Unseal(std::string_view& text) {
  const std::size_t last = kEnd.size() + kDigestDigits + 1;
  if (text.size() < last || text.back() != '\n') return false;
  const std::string_view body = text.substr(0, text.size() - last);
  std::string_view seal = text.substr(body.size());
  SDigest digest;
  if (!TakeFront(seal, kEnd) || !ParseDigest(TakeUpTo(seal, '\n'), digest)) return false;
  text = body;
  return DigestOf(body) == digest;
}

std::string EscapeName(std::string_view name) {
  if (name.empty()) return "%";
  std::string word;
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    if (MustEscape(byte)) {
      word += {'%', kDigits[byte >> 4], kDigits[byte & 15]};
    } else {
      word += c;
    }
  }
  return word;
}

bool UnescapeName(std::string_view word, std::string& name) {
  name.clear();
  if (word == "%") return true;
  while (!word.empty()) {
    char c = word.front();
    word.remove_prefix(1);
    if (c == '%') {
      std::int64_t value = 0;
      if (word.size() < 2 || !ParseNumber(word.substr(0, 2), value, 16)) return false;
      c = static_cast<char>(value);
      word.remove_prefix(2);
    } else if (MustEscape(static_cast<unsigned char>(c))) {
      return false;
    }
    name += c;
  }
  return !name.empty();
}

bool ParseNumber(std::string_view text, std::int64_t& number, int base, bool negative) {
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number, base);
  return error == std::errc() && stop == end && (negative || text.front() != '-');
}

std::string_view TakeUpTo(std::string_view& text, char end) {
  const std::size_t at = text.find(end);
  const std::string_view front = text.substr(0, at);
  text.remove_prefix(at == std::string_view::npos ? text.size() : at + 1);
  return front;
}

bool TakeFront(std::string_view& text, std::string_view front) {
  if (text.substr(0, front.size()) != front) return false;
  text.remove_prefix(front.size());
  return true;
}
