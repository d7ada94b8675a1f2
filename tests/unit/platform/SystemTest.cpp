// What every operating system behind ISystem does.

#include "platform/System.h"

#include "support/TestSystem.h"

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
