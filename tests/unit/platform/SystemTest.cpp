// What every operating system behind ISystem does.

#include "platform/System.h"

#include "support/TestSystem.h"

namespace {

constexpr EOpenMode kAllModes[] = {EOpenMode::kRead, EOpenMode::kUpdate, EOpenMode::kCreate,
                                   EOpenMode::kAppend};

TEST(SystemFile, ALockHoldsUntilTheFileIsClosed) {
  const CTempDirectory temp;
  std::unique_ptr<ISystemFile> first, second;
  System().OpenFile(temp / "lock", EOpenMode::kAppend, first);
  System().OpenFile(temp / "lock", EOpenMode::kAppend, second);
  EXPECT_EQ(first->Lock(), ESystemError::kNone);
  EXPECT_EQ(second->Lock(), ESystemError::kBusy);
  first = nullptr;
  EXPECT_EQ(second->Lock(), ESystemError::kNone);
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

TEST(System, ThreadsThatEndAtOnceRunOnceEachHoweverManyStartTogether) {
  constexpr int kEach = 2000;
  constexpr int kMostAtOnce = 40;
  std::atomic<int> live = 0;
  std::atomic<int> ran = 0;
  const auto start = [&] {
    for (int i = 0; i < kEach; ++i) {
      while (live > kMostAtOnce) System().Sleep(1);
      ++live;
      const ESystemError error = System().StartThread([&] {
        --live;
        ++ran;
      });
      EXPECT_EQ(error, ESystemError::kNone);
    }
  };
  std::thread other(start);
  start();
  other.join();
  EXPECT_TRUE(WaitUntil([&] { return ran == 2 * kEach; })) << ran;
}

}  // namespace
