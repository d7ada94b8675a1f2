#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "KQFTransferExport.h"

/// Which files of a tree take part. The rules are those of rsync: the first
/// one that matches decides, and what none matches takes part. A directory
/// that is excluded is not gone into, whatever later rules say of its files.
///
/// In a pattern "*" stands for any characters but "/", "**" for those too, "?"
/// for one but "/", "[a-z]" and "[[:digit:]]" for one of a set; "\" takes their
/// meaning away, where the pattern has any of them. "/" in front ties it to the
/// top of the tree; without it a pattern with "/" or "**" in it is compared
/// with the end of the name below the tree, any other with the last part of
/// that. "/" at the end: directories only. "dir/***" means dir and what is in it.
///
/// A recording and the side files that tell which ranges of it are missing stay
/// together: a side file takes part when one of its recordings in the tree
/// does, and goes by the rules where there is none.
class KQFT_TRANSFER_API CFilter {
 public:
  /// Adds a rule behind the others.
  /// @param rule a pattern; "- " or "+ " in front of it says what it does
  ///             instead of `include`, and "!" alone drops all rules so far
  /// @return "" or why it is none
  std::string Add(std::string_view rule, bool include);

  /// As Add, for a line of a file: empty ones, and those that begin with "#"
  /// or ";", say nothing.
  std::string AddLine(std::string_view line, bool include);

  bool IsEmpty() const { return m_vecRules.empty(); }

  /// What the rules say of one file or directory alone.
  /// @param path below the tree, "/" between its parts
  bool Allows(std::string_view path, bool isDirectory) const;

  /// Whether a file takes part, the directories above it considered.
  bool Picks(std::string_view path) const;

  /// The same of all files of a tree at once, with their side files.
  std::vector<bool> Pick(const std::vector<std::string>& paths) const;

 private:
  struct SRule {
    std::string m_strPattern;  // without the "/" at either end
    bool m_bInclude = false;
    bool m_bAnchored = false;
    bool m_bDirectory = false;
    bool m_bWild = false;
  };
  static bool Matches(const SRule& rule, std::string_view path, bool isDirectory);

  std::vector<SRule> m_vecRules;
};
