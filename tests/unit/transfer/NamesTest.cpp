// Names that kqft gives to the server and takes from it.

#include "transfer/Names.h"

TEST(Names, ThatLeadOutOfTheTargetAreRefused) {
  for (const char* name : {"", "..", "a\\..\\b", "a/../../b", "\\etc\\passwd", "/etc", "C:\\x",
                           "c:x", "a\\\\b", "a\\", ".", "a\\.\\b"}) {
    std::string why;
    EXPECT_TRUE(SplitSafely(name, why).empty()) << name;
    EXPECT_FALSE(why.empty()) << name;
  }
  std::string why;
  EXPECT_EQ(SplitSafely("a b\\..c/d..e", why), (std::vector<std::string>{"a b", "..c", "d..e"}));
  EXPECT_EQ(why, "");
  EXPECT_TRUE(SplitSafely(std::string("a\0b", 3), why).empty());
}

TEST(Names, OfProjectsThatReachMoreThanOneAreRefused) {
  for (const char* name : {"", ".", "..", "a/b", "a\\b", "\\", "a\nb"}) {
    EXPECT_FALSE(WhyNoProject(name).empty()) << name;
  }
  for (const char* name : {"Run 42", "...", "\xff", "a.b"}) EXPECT_EQ(WhyNoProject(name), "");
}

TEST(Names, OfPartsCarryTheSizeAndFitTheFileSystem) {
  EXPECT_EQ(PartName("a.tm", 42), "a.tm.42.part");
  const std::string fits(255 - std::string(".42.part").size(), 'x');
  EXPECT_EQ(PartName(fits, 42), fits + ".42.part");

  // Two long names that begin alike stay apart; no character is cut in two.
  const std::string one = std::string(179, 'x') + "\xc3\xa4" + std::string(70, 'y');
  const std::string part = PartName(one, 42);
  EXPECT_LE(part.size(), 255U);
  EXPECT_EQ(part.compare(0, 180, std::string(179, 'x') + "~"), 0) << part;
  EXPECT_NE(part, PartName(one.substr(0, one.size() - 1) + "z", 42));
}
