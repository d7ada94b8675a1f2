// Filter: patterns against names of files.

#include "transfer/Filter.h"

#include <algorithm>
#include <cctype>
#include <map>

#include "protocol/MeasurementFiles.h"

namespace {

constexpr std::string_view kSubtree = "***";

bool IsOfKind(std::string_view kind, char c) {
  static const std::pair<std::string_view, int (*)(int)> kKinds[] = {
      {"alnum", std::isalnum}, {"alpha", std::isalpha}, {"blank", std::isblank},
      {"cntrl", std::iscntrl}, {"digit", std::isdigit}, {"graph", std::isgraph},
      {"lower", std::islower}, {"print", std::isprint}, {"punct", std::ispunct},
      {"space", std::isspace}, {"upper", std::isupper}, {"xdigit", std::isxdigit}};
  return std::any_of(std::begin(kKinds), std::end(kKinds), [&](const auto& known) {
    return known.first == kind && known.second(static_cast<unsigned char>(c)) != 0;
  });
}

// One of the set that begins behind "[" at `at`, which goes behind its "]"; to
// npos when there is none.
bool IsInSet(std::string_view pattern, std::size_t& at, char c) {
  const auto next = [&] {
    if (pattern[at] == '\\' && at + 1 < pattern.size()) ++at;
    return static_cast<unsigned char>(pattern[at++]);
  };
  const bool negated = at < pattern.size() && (pattern[at] == '!' || pattern[at] == '^');
  if (negated) ++at;
  bool found = false;
  const auto value = static_cast<unsigned char>(c);
  for (bool first = true; at < pattern.size() && (first || pattern[at] != ']'); first = false) {
    if (pattern.substr(at, 2) == "[:") {
      const std::size_t end = pattern.find(":]", at + 2);
      if (end != std::string_view::npos) {
        found = IsOfKind(pattern.substr(at + 2, end - at - 2), c) || found;
        at = end + 2;
        continue;
      }
    }
    const unsigned char low = next();
    unsigned char high = low;
    if (at + 1 < pattern.size() && pattern[at] == '-' && pattern[at + 1] != ']') {
      ++at;
      high = next();
    }
    found = found || (low <= value && value <= high);
  }
  at = at < pattern.size() ? at + 1 : std::string_view::npos;
  return at != std::string_view::npos && found != negated && c != '/';
}

// One character of the text against the pattern at `at`, which goes behind it.
bool MatchesOne(std::string_view pattern, std::size_t& at, char c) {
  const char sign = pattern[at++];
  if (sign == '?') return c != '/';
  if (sign == '[') return IsInSet(pattern, at, c);
  if (sign == '\\' && at < pattern.size()) return pattern[at++] == c;
  return sign == c;
}

// Goes back to the last "*" that can take one character more, and from there to
// the last "**": so it takes no longer than both lengths multiplied twice.
bool MatchesWhole(std::string_view pattern, std::string_view text) {
  struct SBack {
    std::size_t m_nPattern = std::string_view::npos, m_nText = 0;
  } star, stars;
  std::size_t p = 0, t = 0;
  while (t < text.size() || p < pattern.size()) {
    if (p < pattern.size() && pattern[p] == '*') {
      const std::size_t begin = p;
      while (p < pattern.size() && pattern[p] == '*') ++p;
      (p - begin > 1 ? stars : star) = {p, t};
      if (p - begin > 1) star = SBack();
      continue;
    }
    std::size_t behind = p;
    if (p < pattern.size() && t < text.size() && MatchesOne(pattern, behind, text[t])) {
      p = behind;
      ++t;
      continue;
    }
    if (star.m_nPattern != std::string_view::npos && star.m_nText < text.size() &&
        text[star.m_nText] != '/') {
      p = star.m_nPattern;
      t = ++star.m_nText;
    } else if (stars.m_nPattern != std::string_view::npos && stars.m_nText < text.size()) {
      p = stars.m_nPattern;
      t = ++stars.m_nText;
      star = SBack();
    } else {
      return false;
    }
  }
  return true;
}

// The last parts of a path, `slashes` + 1 of them; "" when it has fewer.
std::string_view LastParts(std::string_view path, std::ptrdiff_t slashes) {
  std::size_t at = path.size();
  for (std::ptrdiff_t i = 0; i <= slashes; ++i) {
    if (at == 0 || at == std::string_view::npos) return "";
    at = path.rfind('/', at - 1);
  }
  return at == std::string_view::npos ? path : path.substr(at + 1);
}

}  // namespace

std::string CFilter::Add(std::string_view rule, bool include) {
  if (rule == "!") {
    m_vecRules.clear();
    return "";
  }
  SRule added;
  added.m_bInclude = include;
  if (rule.substr(0, 2) == "+ " || rule.substr(0, 2) == "- ") {
    added.m_bInclude = rule.front() == '+';
    rule.remove_prefix(2);
  }
  if (rule.empty()) return "the pattern is empty";
  added.m_bDirectory = rule.size() > 1 && rule.back() == '/';
  if (added.m_bDirectory) rule.remove_suffix(1);
  added.m_bAnchored = rule.front() == '/';
  if (added.m_bAnchored) rule.remove_prefix(1);
  added.m_bWild = rule.find_first_of("*?[") != std::string_view::npos;
  added.m_strPattern = rule;
  m_vecRules.push_back(std::move(added));
  return "";
}

std::string CFilter::AddLine(std::string_view line, bool include) {
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  const bool isRule = !line.empty() && line.front() != '#' && line.front() != ';';
  return isRule ? Add(line, include) : "";
}

bool CFilter::Matches(const SRule& rule, std::string_view path, bool isDirectory) {
  if (rule.m_bDirectory && !isDirectory) return false;
  const std::string_view pattern = rule.m_strPattern;
  const std::ptrdiff_t slashes = std::count(pattern.begin(), pattern.end(), '/');
  if (!rule.m_bWild) return pattern == (rule.m_bAnchored ? path : LastParts(path, slashes));
  const std::size_t any = pattern.find("**");
  std::string text(path);
  // A directory itself is the nothing in front of what "***" stands for.
  if (isDirectory && pattern.size() > kSubtree.size() &&
      pattern.substr(pattern.size() - kSubtree.size()) == kSubtree) {
    text += '/';
  }
  if (rule.m_bAnchored) return MatchesWhole(pattern, text) || MatchesWhole(pattern, path);
  if (any == 0)
    return MatchesWhole(pattern, "/" + text) || MatchesWhole(pattern, "/" + std::string(path));
  if (any == std::string_view::npos) return MatchesWhole(pattern, LastParts(path, slashes));
  for (std::size_t at = 0;; ++at) {
    if (MatchesWhole(pattern, std::string_view(text).substr(at)) ||
        (at <= path.size() && MatchesWhole(pattern, path.substr(at)))) {
      return true;
    }
    at = path.find('/', at);
    if (at == std::string_view::npos) return false;
  }
}

bool CFilter::Allows(std::string_view path, bool isDirectory) const {
  const auto rule = std::find_if(m_vecRules.begin(), m_vecRules.end(),
                                 [&](const SRule& one) { return Matches(one, path, isDirectory); });
  return rule == m_vecRules.end() || rule->m_bInclude;
}

bool CFilter::Picks(std::string_view path) const {
  for (std::size_t at = path.find('/'); at != std::string_view::npos; at = path.find('/', at + 1)) {
    if (!Allows(path.substr(0, at), true)) return false;
  }
  return Allows(path, false);
}

std::vector<bool> CFilter::Pick(const std::vector<std::string>& paths) const {
  std::vector<bool> picked(paths.size(), true);
  if (IsEmpty()) return picked;
  std::map<std::string_view, bool> recordings;
  for (std::size_t i = 0; i < paths.size(); ++i) {
    picked[i] = Picks(paths[i]);
    if (IsMeasurementFile(paths[i])) recordings[paths[i]] = picked[i];
  }
  for (std::size_t i = 0; i < paths.size(); ++i) {
    if (!IsSideFile(paths[i])) continue;
    const std::string stem = SideFileName(paths[i], "");
    bool any = false, goes = false;
    for (auto at = recordings.lower_bound(stem);
         at != recordings.end() && at->first.substr(0, stem.size()) == stem; ++at) {
      if (!IsSideFileOf(paths[i], std::string(at->first))) continue;
      any = true;
      goes = goes || at->second;
    }
    if (any) picked[i] = goes;
  }
  return picked;
}
