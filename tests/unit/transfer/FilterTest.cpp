// Which files patterns pick.

#include "transfer/Filter.h"

#include <gtest/gtest.h>

namespace {

using Names = std::vector<std::string>;

Names Picked(const Names& rules, const Names& paths) {
  CFilter filter;
  for (const std::string& rule : rules) EXPECT_EQ(filter.AddLine(rule, false), "") << rule;
  const std::vector<bool> picked = filter.Pick(paths);
  Names names;
  for (std::size_t i = 0; i < paths.size(); ++i) {
    if (picked[i]) names.push_back(paths[i]);
  }
  return names;
}

// What rsync sends by the same rules.
TEST(Filter, TheFirstPatternThatMatchesDecides) {
  const Names all = {"a.tm", "b",      "b.tmp",       "foo/bar", "foo/x/bar", "num/1",
                     "x[1]", "back\\", "x/foo/bar/d", "x/y.tm",  "x/y/foo"};
  const struct {
    Names m_rules, m_picked;
  } cases[] = {
      {{"# b", "", "; b", "/b", "foo/", "- x*"}, {"a.tm", "b.tmp", "num/1", "back\\"}},
      {{"+ *.tm", "*/*", "?*.*", "[!ab]*"}, {"a.tm", "b", "back\\"}},
      {{"+ */", "+ foo/b*", "*"}, {"foo/bar"}},
      {{"+ *.tm", "+ x", "*"}, {"a.tm", "x/y.tm"}},
      {{"+ /x/", "+ /x/foo/***", "*"}, {"x/foo/bar/d"}},
      {{"foo/**/bar", "**/d", "num/[[:digit:]]", "x\\[1]", "b*"}, {"a.tm", "x/y.tm", "x/y/foo"}},
      {{"x[[]1]", "back\\", "**.t*"},
       {"b", "foo/bar", "foo/x/bar", "num/1", "x/foo/bar/d", "x/y/foo"}},
      {{"*", "!", "/*/*/", "num/[2-9]", "[b", "x[1]"},
       {"a.tm", "b", "b.tmp", "foo/bar", "num/1", "x[1]", "back\\", "x/y.tm"}},
      {{"b\r", "foo", "/y", "x/***", "*[0-9"}, {"a.tm", "b.tmp", "num/1", "x[1]", "back\\"}}};
  for (const auto& [rules, picked] : cases) {
    EXPECT_EQ(Picked(rules, all), picked) << rules.front() << " " << rules.back();
  }
  CFilter filter;
  EXPECT_NE(filter.Add("", true), "");
  EXPECT_NE(filter.Add("+ ", true), "");
  // Nor does a pattern that goes back often take for ever.
  std::string often;
  for (int i = 0; i < 60; ++i) often += "**a*/";
  EXPECT_EQ(Picked({often + "b"}, {std::string(4000, 'a') + "/c"}).size(), 1U);
}

TEST(Filter, ARecordingAndItsSideFilesStayTogether) {
  const Names all = {"d/run(1).tm", "d/run.fi", "d/run.li", "d/run.tm", "d/runs.tm", "lone.li"};
  EXPECT_EQ(Picked({"*.[lf]i"}, all),
            (Names{"d/run(1).tm", "d/run.fi", "d/run.li", "d/run.tm", "d/runs.tm"}));
  EXPECT_EQ(Picked({"+ */", "+ runs.tm", "*.tm"}, all), (Names{"d/runs.tm", "lone.li"}));
  EXPECT_EQ(Picked({"run.tm"}, all).size(), all.size() - 1);  // another segment goes
}

}  // namespace
