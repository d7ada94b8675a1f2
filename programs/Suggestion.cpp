// What a misspelt word was probably meant to be.

#include "programs/Suggestion.h"

#include <algorithm>
#include <numeric>

namespace {

// How many letters have to be added, taken away, replaced, or swapped with
// their neighbour.
std::size_t Distance(const std::string& a, const std::string& b) {
  std::vector<std::size_t> before, last, row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 1; i <= a.size(); ++i) {
    before = std::move(last);
    last = row;
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t replaced = last[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, replaced});
      const bool swapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
      if (swapped) row[j] = std::min(row[j], before[j - 2] + 1);
    }
  }
  return row.back();
}

}  // namespace

std::string Suggest(const std::string& word, const std::vector<std::string>& candidates) {
  std::string best;
  std::size_t least = std::max<std::size_t>(word.size() / 3, 1) + 1;
  for (const std::string& candidate : candidates) {
    const std::size_t distance = Distance(word, candidate);
    if (distance >= least || distance >= candidate.size()) continue;
    least = distance;
    best = candidate;
  }
  return best;
}
