// Strings, paths, numbers and wide text.

#include "platform/ExpertUtils.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "platform/GBKUTF8Transfer.h"
#include "platform/KQPlatForm.h"
#include "support/TestSystem.h"

namespace {

using EU::CExpertUtils;

TEST(ExpertUtils, PathsSplitAtBothSeparators) {
  constexpr struct {
    const char* m_pPath;
    const char* m_pDirectory;
    const char* m_pName;
    const char* m_pExtension;
    const char* m_pWithout;
    const char* m_pLevel3;
  } kCases[] = {
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
  for (const auto& c : kCases) {
    EXPECT_EQ(CExpertUtils::PickDirectory(c.m_pPath), c.m_pDirectory) << c.m_pPath;
    EXPECT_EQ(CExpertUtils::PickDirectory(c.m_pPath, 1), c.m_pPath) << c.m_pPath;
    EXPECT_EQ(CExpertUtils::PickDirectory(c.m_pPath, 2), c.m_pDirectory) << c.m_pPath;
    EXPECT_EQ(CExpertUtils::PickDirectory(c.m_pPath, 3), c.m_pLevel3) << c.m_pPath;
    EXPECT_EQ(CExpertUtils::PickFileName(c.m_pPath), c.m_pName) << c.m_pPath;
    EXPECT_EQ(CExpertUtils::PickFileExt(c.m_pPath), c.m_pExtension) << c.m_pPath;
    EXPECT_EQ(CExpertUtils::EreaseFileExt(c.m_pPath), c.m_pWithout) << c.m_pPath;
  }
}

TEST(ExpertUtils, BreakStringKeepsEveryPiece) {
  using Pieces = std::list<std::string>;
  const std::pair<const char*, Pieces> cases[] = {
      {"", {}},
      {"|", {"", ""}},
      {"5|1,2,3|", {"5", "1,2,3", ""}},
      {"128||", {"128", "", ""}},
      {"a.tm|b.tm|", {"a.tm", "b.tm", ""}},
      {"one", {"one"}},
  };
  for (const auto& [text, expected] : cases) {
    Pieces pieces{"kept"};
    EXPECT_EQ(CExpertUtils::BreakString(text, pieces, "|"), static_cast<int>(expected.size()));
    pieces.pop_front();
    EXPECT_EQ(pieces, expected) << text;
  }
}

TEST(ExpertUtils, TextsAreCutReplacedAndLoweredInPlace) {
  std::string left = "data", right = "data", none = "data", all = "data";
  CExpertUtils::Left(left, 3);
  CExpertUtils::Right(right, 3);
  CExpertUtils::Right(none, 0);
  CExpertUtils::Left(all, 9);
  EXPECT_EQ(left + right + none + all, "datatadata");
  std::string path = "a//b///c";
  CExpertUtils::RelaceString(path, "//", "\\");
  EXPECT_EQ(path, "a\\b\\/c");
  CExpertUtils::RelaceString(path, "", "x");
  EXPECT_EQ(path, "a\\b\\/c");
  std::string name = "A\xC4Z[.TM";
  EXPECT_EQ(&CExpertUtils::ToLower(name), &name);
  EXPECT_EQ(name, "a\xC4z[.tm");
}

TEST(ExpertUtils, CreateAllDirMakesWhatIsMissingUpToTheLastSeparator) {
  const CTempDirectory temp;
  EXPECT_EQ(CExpertUtils::CreateAllDir("file"), 1);
  EXPECT_EQ(CExpertUtils::CreateAllDir(temp / "a\\b//c/file"), 1);
  EXPECT_EQ(CExpertUtils::CreateAllDir(temp / "a/b/c/d\\"), 1);
  EXPECT_TRUE(std::filesystem::is_directory(temp / "a/b/c/d"));
  EXPECT_FALSE(CKQPlatForm::IsFileExist(temp / "a/b/c/file"));
  WriteWholeFile(temp / "plain", "");
  EXPECT_EQ(CExpertUtils::CreateAllDir(temp / "plain/file"), 0);
  EXPECT_EQ(CExpertUtils::CreateAllDir(temp / (std::string("n\0/x/", 5) + "file")), 0);
  EXPECT_EQ(CExpertUtils::CreateAllDir(temp / (std::string("cut/\0/", 6) + "file")), 0);
  EXPECT_FALSE(CKQPlatForm::IsFileExist(temp / "cut"));
  const CScopedSystem system(
      CFaultPlan().Fail(EOperation::kMakeDirectory, 1, ESystemError::kNoSpace, true));
  EXPECT_EQ(CExpertUtils::CreateAllDir(temp / "new/file"), 0);
}

TEST(KQPlatForm, NumbersSaturateAndGarbageIsZero) {
  constexpr std::pair<const char*, std::int64_t> kCases[] = {
      {"", 0},
      {" \t42|7", 42},
      {"-17x", -17},
      {"+5", 5},
      {"- 5", 0},
      {"x1", 0},
      {"9223372036854775807", INT64_MAX},
      {"9223372036854775808", INT64_MAX},
      {"-9223372036854775808", INT64_MIN},
      {"-99999999999999999999", INT64_MIN},
  };
  for (const auto& [text, expected] : kCases) {
    EXPECT_EQ(CKQPlatForm::KQToLONGLONG(text), expected) << text;
  }
}

TEST(GBKUTF8Transfer, InvalidBytesBecomeReplacementCharacters) {
  EXPECT_EQ(GBKUTF8Transfer::StringToWString("a\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80"),
            L"a\u00E9\u4E2D\U0001F600");
  EXPECT_EQ(GBKUTF8Transfer::StringToWString("\xC3"), L"\uFFFD");
  EXPECT_EQ(GBKUTF8Transfer::StringToWString("\xC0\xAF"), L"\uFFFD\uFFFD");
  EXPECT_EQ(GBKUTF8Transfer::StringToWString("\xED\xA0\x80"), L"\uFFFD\uFFFD\uFFFD");
  EXPECT_EQ(GBKUTF8Transfer::StringToWString("\xF8xy"), L"\uFFFDxy");
}

}  // namespace
