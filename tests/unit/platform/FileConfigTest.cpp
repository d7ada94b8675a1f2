// Configuration files: reading what others wrote, changing single values, and
// replacing the file whole.

#include "platform/FileConfig.h"

#include <filesystem>

#include "support/TestSystem.h"

namespace {

std::string Value(QFileConfig& config, const std::string& section, const std::string& key) {
  std::string value = "(none)";
  config.ReadString(section, key, value, true);
  return value;
}

TEST(FileConfig, AFileOfAnotherProgramIsReadAndOnlyTheChangedValueDiffers) {
  const CTempDirectory temp;
  const std::string before =
      "\xEF\xBB\xBF; written by hand\r\nloose = 1\r\nbig=99999999999999999999\r\n\r\n[ LOST_pos ] "
      "; "
      "heading\r\n"
      "# comment = no key\r\n\tnRecordCount =  2 \r\nlost_INFO_0=10,20\r\n"
      "lost_info_0=second\r\nno key here\r\n=no key\r\nempty=\r\n\r\n[broken\r\n[Next]\r\nk=v=w";
  WriteWholeFile(temp / "a.li", before);
  const std::string left =
      ".kqft-7688082729940726133-1-2.tmp";  // by an update that a crash cut off
  const auto crash = [&] {
    WriteWholeFile(temp / left, "");
    WriteWholeFile(temp / ".kqft-7688082729940726133.lock", left);
  };
  crash();
  std::filesystem::permissions(temp / "a.li", std::filesystem::perms(0640));
  const auto mode = std::filesystem::status(temp / "a.li").permissions();
  QFileConfig config;
  config.SetFileName(temp / "a.li");
  ASSERT_TRUE(config.ReadConfig());
  EXPECT_EQ(Value(config, "", "LOOSE"), "1");
  EXPECT_EQ(Value(config, "Lost_Pos", "nrecordcount"), "2");
  EXPECT_EQ(Value(config, "lost_pos", "lost_info_0"), "10,20");
  EXPECT_EQ(Value(config, "Lost_Pos", "empty"), "");
  EXPECT_EQ(Value(config, "Next", "K"), "v=w");
  EXPECT_EQ(Value(config, "Next", "empty"), "(none)");
  int number = 7;
  EXPECT_EQ(config.ReadInteger("", "big", number, true), 1);
  EXPECT_EQ(number, INT32_MAX);
  ASSERT_TRUE(config.UpdateFile(true));
  EXPECT_EQ(ReadWholeFile(temp / "a.li"), before);

  config.WriteString("LOST_POS", "NRECORDCOUNT", "31", "", true);
  config.WriteString("Lost_Pos", "empty", "full", "", true);
  config.WriteString("Lost_Pos", "new", " 1\n[x] ", "why", true);
  config.WriteString("Fresh", "a", "b", "", true);
  config.WriteString("", "first", "0", "", true);
  ASSERT_TRUE(config.UpdateFile(true));
  EXPECT_EQ(
      ReadWholeFile(temp / "a.li"),
      "\xEF\xBB\xBF; written by hand\r\nloose = 1\r\nbig=99999999999999999999\r\nfirst=0\r\n\r\n[ "
      "LOST_pos ] "
      "; heading\r\n"
      "# comment = no key\r\n\tnRecordCount =  31 \r\nlost_INFO_0=10,20\r\n"
      "lost_info_0=second\r\nno key here\r\n=no key\r\nempty=full\r\n; why\r\nnew=1 [x]\r\n\r\n"
      "[broken\r\n[Next]\r\nk=v=w\r\n[Fresh]\r\na=b\r\n");
  EXPECT_EQ(Value(config, "lost_pos", "NEW"), "1 [x]");
  for (int look = 0; look < 2; ++look, crash(), config.ClearLeft()) {
    const std::filesystem::directory_iterator files(temp.Path());
    EXPECT_EQ(std::distance(begin(files), end(files)), 1) << look;
  }
  EXPECT_EQ(std::filesystem::status(temp / "a.li").permissions(), mode);
}

TEST(FileConfig, WhatCannotBeReadIsRefusedAndLeavesNothingInMemory) {
  const CTempDirectory temp;
  WriteWholeFile(temp / "good", "[s]\nk=v\n");
  MakeSparseFile(temp / "huge", (64 << 20) + 1);
  std::string crowded;
  while (crowded.size() < 4000004) crowded += "a=1\n";
  WriteWholeFile(temp / "crowded", crowded);
  QFileConfig config;
  for (const std::string& path :
       {temp / "missing", temp.Path(), temp / "huge", temp / "crowded", std::string()}) {
    config.SetFileName(temp / "good");
    ASSERT_TRUE(config.ReadConfig());
    config.SetFileName(path);
    EXPECT_FALSE(config.ReadConfig()) << path;
    EXPECT_EQ(Value(config, "s", "k"), "(none)");
  }
  const CScopedSystem system(
      CFaultPlan().ShortTransfers(4).Fail(EOperation::kRead, 2, ESystemError::kOther));
  config.SetFileName(temp / "good");
  EXPECT_FALSE(config.ReadConfig());  // half a file is no file
}

}  // namespace
