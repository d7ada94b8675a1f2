// What every operating system behind ISystem does.

#include "platform/System.h"

#include <filesystem>

#include "platform/FileLook.h"
#include "support/HostFiles.h"
#include "support/TestSystem.h"

namespace fs = std::filesystem;

namespace {

constexpr EOpenMode kAllModes[] = {EOpenMode::kRead, EOpenMode::kUpdate, EOpenMode::kCreate,
                                   EOpenMode::kKeep, EOpenMode::kAppend};

TEST(SystemFile, ALockHoldsUntilTheFileIsClosed) {
  const CTempDirectory temp;
  std::unique_ptr<ISystemFile> first, second;
  System().OpenFile(temp / "lock", EOpenMode::kAppend, first);
  System().OpenFile(temp / "lock", EOpenMode::kAppend, second);
  EXPECT_EQ(first->Lock(), ESystemError::kNone);
  EXPECT_EQ(second->Lock(), ESystemError::kBusy);
  first = nullptr;
  EXPECT_EQ(second->Lock(), ESystemError::kNone);

  bool isNamed = false;
  EXPECT_EQ(second->IsNamed(temp / "lock", isNamed), ESystemError::kNone);
  EXPECT_TRUE(isNamed);
  EXPECT_EQ(System().RenameFile(temp / "lock", temp / "away"), ESystemError::kNone);
  EXPECT_EQ(second->IsNamed(temp / "lock", isNamed), ESystemError::kNone);
  EXPECT_FALSE(isNamed);
  System().OpenFile(temp / "lock", EOpenMode::kKeep, first);
  EXPECT_EQ(second->IsNamed(temp / "lock", isNamed), ESystemError::kNone);
  EXPECT_FALSE(isNamed);
}

TEST(SystemFile, EmptyPathsAndNulBytesAreRefusedByEveryCall) {
  const CTempDirectory temp;
  WriteWholeFile(temp / "canary", "alive");
  const std::string cut = (temp / "canary") + std::string(1, '\0') + "x";
  for (const std::string& path : {std::string(), cut, temp.Path() + std::string(1, '\0')}) {
    std::unique_ptr<ISystemFile> file;
    SFileStatus status;
    std::vector<SDirectoryEntry> entries;
    std::uint64_t bytes = 0;
    for (const EOpenMode mode : kAllModes) {
      EXPECT_EQ(System().OpenFile(path, mode, file), ESystemError::kBadPath);
    }
    for (const ESystemError result :
         {System().QueryFile(path, status), System().QueryFreeSpace(path, bytes),
          System().FlushDirectory(path), System().RemoveFile(path),
          System().RenameFile(path, temp / "b"), System().RenameFile(temp / "canary", path),
          System().MakeDirectory(path), System().RemoveEmptyDirectory(path),
          System().ListDirectory(path, entries), System().ClearDirectory(path)}) {
      EXPECT_EQ(result, ESystemError::kBadPath);
    }
  }
  EXPECT_EQ(ReadWholeFile(temp / "canary"), "alive");
}

TEST(SystemDirectory, ReachesWhatLiesInItAndNothingElse) {
  constexpr std::int64_t kTime = 1234567890987654300;
  const CTempDirectory temp, outside;
  std::unique_ptr<ISystemDirectory> directory, other;
  std::unique_ptr<ISystemFile> file;
  SFileLook look;
  const auto open = [&](const std::string& below, bool make, auto& opened) {
    return System().OpenDirectory(temp.Path(), below, make, opened);
  };
  EXPECT_EQ(open("a/b", false, directory), ESystemError::kNotFound);
  ASSERT_EQ(open("a/b", true, directory), ESystemError::kNone);
  EXPECT_EQ(directory->OpenFile("x", EOpenMode::kCreateNew, file), ESystemError::kNone);
  file = nullptr;
  WriteWholeFile(temp / "a/b/y", "other");
  EXPECT_EQ(directory->SetTime("x", kTime), ESystemError::kNone);
  EXPECT_EQ(directory->RenameFile("x", "y", false), ESystemError::kExists);
  EXPECT_EQ(directory->RenameFile("x", "y", true), ESystemError::kNone);
  EXPECT_EQ(directory->QueryFile("x", look), ESystemError::kNotFound);
  EXPECT_EQ(directory->QueryFile("y", look), ESystemError::kNone);
  EXPECT_TRUE(look.m_bRegular && look.m_llSize == 0 && look.m_llTime == kTime);
  EXPECT_EQ(directory->RenameFile("y", "z", false), ESystemError::kNone);
  EXPECT_EQ(directory->SetMode("z", 0444), ESystemError::kNone);
  EXPECT_EQ(directory->QueryFile("z", look), ESystemError::kNone);
  EXPECT_EQ(look.m_nMode, 0444U);
  EXPECT_EQ(directory->RemoveFile("z"), ESystemError::kNone);

  if (!MakeLink(outside.Path(), temp / "a/link")) return;
  EXPECT_EQ(open("a/link/c", true, other), ESystemError::kNotRegular);
  MakeLink(outside / "target", temp / "a/b/link");
  EXPECT_EQ(directory->QueryFile("link", look), ESystemError::kNone);
  EXPECT_FALSE(look.m_bRegular);
  EXPECT_NE(directory->OpenFile("link", EOpenMode::kKeep, file), ESystemError::kNone);
  fs::rename(temp / "a", temp / "away");
  MakeLink(outside.Path(), temp / "a");
  EXPECT_EQ(directory->OpenFile("n", EOpenMode::kCreateNew, file), ESystemError::kNone);
  EXPECT_TRUE(fs::exists(temp / "away/b/n") && fs::is_empty(outside.Path()));
}

// Few at once: a thread that has run takes up room until the system has seen to it.
TEST(System, ThreadsThatEndAtOnceRunOnceEachHoweverManyStartTogether) {
  constexpr int kRounds = 200;
  constexpr int kAtOnce = 10;
  const auto start = [] {
    for (int round = 0; round < kRounds; ++round) {
      std::atomic<int> ran = 0;
      for (int i = 0; i < kAtOnce; ++i) {
        EXPECT_EQ(System().StartThread([&ran] { ++ran; }), ESystemError::kNone);
      }
      ASSERT_TRUE(WaitUntil([&ran] { return ran == kAtOnce; })) << ran;
      System().Sleep(2);
    }
  };
  std::thread other(start);
  start();
  other.join();
}

}  // namespace
