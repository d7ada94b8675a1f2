// The order of listings.

#include "platform/DirectoryOrder.h"

#include <algorithm>

namespace {

unsigned char FoldCase(char c) {
  return static_cast<unsigned char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
}

}  // namespace

bool IsListedBefore(const std::string& a, const std::string& b) {
  const auto [inA, inB] = std::mismatch(a.begin(), a.end(), b.begin(), b.end(),
                                        [](char x, char y) { return FoldCase(x) == FoldCase(y); });
  if (inA != a.end() && inB != b.end()) return FoldCase(*inA) < FoldCase(*inB);
  if (inA != a.end() || inB != b.end()) return inA == a.end();
  return a < b;
}
