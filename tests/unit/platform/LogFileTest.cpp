// The steps that all log writers share.

#include "platform/LogFile.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "platform/KQFile.h"
#include "platform/TimeConvert.h"
#include "support/TestSystem.h"

namespace {

TEST(LogFile, ANewFileIsDueBeyondTheLimitOnly) {
  const CTempDirectory temp;
  WriteWholeFile(temp / "log", std::string(1048576, 'x'));
  EXPECT_FALSE(IsLogFileFull(temp / "log"));
  WriteWholeFile(temp / "log", std::string(1048577, 'x'));
  EXPECT_TRUE(IsLogFileFull(temp / "log"));
  EXPECT_FALSE(IsLogFileFull(temp / "missing"));
}

TEST(LogFile, IsReopenedAfterMoreThanSixtySeconds) {
  const CTempDirectory temp;
  CScopedSystem system;
  CKQFile file;
  AppendLogLine(file, "dropped");
  OpenLogFile(file, temp / "log");
  for (const int age : {60, 61, -61}) {
    std::filesystem::remove(temp / "log");  // seen again only by a reopening
    std::int64_t openedAt = CTimeConvert::GetCurTime() - age;
    ReopenLogFileIfDue(file, temp / "log", openedAt);
    EXPECT_EQ(std::filesystem::exists(temp / "log"), age != 60) << age;
  }
}

TEST(LogFile, ALineIsTimeColonMessageInOneWrite) {
  const CTempDirectory temp;
  CScopedSystem system;
  CKQFile file;
  OpenLogFile(file, temp / "log");
  const std::string message(1500, 'm');
  AppendLogLine(file, message + "\n");
  const std::string text = ReadWholeFile(temp / "log");
  ASSERT_EQ(text.size(), 19 + 2 + message.size() + 1);
  EXPECT_EQ(text.substr(19), ": " + message + "\n");
  EXPECT_EQ(text.substr(4, 1) + text.substr(10, 1) + text.substr(13, 1), "-_-");
  EXPECT_EQ(system.Count(EOperation::kWrite), 1);
}

}  // namespace
