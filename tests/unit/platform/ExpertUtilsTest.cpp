// Paths.

#include "platform/ExpertUtils.h"

namespace {

using EU::CExpertUtils;

TEST(ExpertUtils, PathsSplitAtBothSeparators) {
  // Path, directory, name, extension, path without it, directory above.
  constexpr const char* kCases[][6] = {
      {"a/b.tm", "a/", "b.tm", "tm", "a/b", ""},
      {"d\\a\\b.tar.gz", "d\\a\\", "b.tar.gz", "gz", "d\\a\\b.tar", "d\\"},
      {"d/a\\b", "d/a\\", "b", "", "d/a\\b", "d/"},
      {"b.tm", "", "b.tm", "tm", "b", ""},
      {"D:\\Prj\\", "D:\\Prj\\", "Prj", "", "D:\\Prj\\", "D:\\"},
      {"/x//y//", "/x//y//", "y", "", "/x//y//", "/x//"},
      {"a.b\\c", "a.b\\", "c", "", "a.b\\c", ""},
      {"x.", "", "x.", "", "x", ""},
      {".x", "", ".x", "x", "", ""},
      {"", "", "", "", "", ""},
      {"\\/", "\\/", "", "", "\\/", ""},
  };
  for (const auto& [path, directory, name, extension, without, above] : kCases) {
    EXPECT_EQ(CExpertUtils::PickDirectory(path), directory) << path;
    EXPECT_EQ(CExpertUtils::PickDirectory(path, 1), path) << path;
    EXPECT_EQ(CExpertUtils::PickDirectory(path, 3), above) << path;
    EXPECT_EQ(CExpertUtils::PickFileName(path), name) << path;
    EXPECT_EQ(CExpertUtils::PickFileExt(path), extension) << path;
    EXPECT_EQ(CExpertUtils::EreaseFileExt(path), without) << path;
  }
}

}  // namespace
