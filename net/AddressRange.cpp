// Ranges of addresses: what an administrator writes down, and the question
// whether a peer is among them.

#include "net/AddressRange.h"

#include <charconv>
#include <string_view>

#include "net/AddressText.h"

namespace {

constexpr int kAddressBits = 32;

// Takes a number from the front of the text. False when there is none, it is
// above `most`, or has zeros in front, which some read as octal.
bool TakeNumber(std::string_view& text, unsigned int most, unsigned int& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const auto digits = static_cast<std::size_t>(end - text.data());
  if (error != std::errc() || number > most || (digits > 1 && text.front() == '0')) return false;
  text.remove_prefix(digits);
  return true;
}

bool TakeAddress(std::string_view& text, unsigned int& ip) {
  ip = 0;
  for (int i = 0; i < 4; ++i) {
    unsigned int byte = 0;
    if (i > 0) {
      if (!text.starts_with('.')) return false;
      text.remove_prefix(1);
    }
    if (!TakeNumber(text, 255, byte)) return false;
    ip = ip << 8 | byte;
  }
  return true;
}

}  // namespace

std::string CAddressRange::Parse(const std::string& text, CAddressRange& range) {
  std::string_view rest = text;
  unsigned int first = 0;
  if (!TakeAddress(rest, first)) return "not an IPv4 address or range such as 10.1.0.0/16";
  unsigned int prefix = kAddressBits;
  if (rest.starts_with('/')) {
    rest.remove_prefix(1);
    if (!TakeNumber(rest, kAddressBits, prefix))
      return "behind the \"/\" goes a number from 0 to 32";
  }
  if (!rest.empty()) return "unexpected \"" + std::string(rest) + "\" at its end";
  // Shifting by all the bits there are is undefined.
  const unsigned int mask = prefix == 0 ? 0 : ~0U << (kAddressBits - prefix);
  if ((first & ~mask) != 0) {
    return "the address has bits behind the prefix; the range is " + AddressText(first & mask) +
           "/" + std::to_string(prefix);
  }
  range.m_nFirst = first;
  range.m_nMask = mask;
  return "";
}
