// Files that threads share: modes, positions, and closing while others work.

#include "platform/KQFile.h"

#include "support/TestSystem.h"

namespace {

bool WriteText(CKQFile& file, const std::string& text) {
  return file.Write(text.data(), static_cast<int>(text.size()));
}

std::string ReadText(CKQFile& file, int len) {
  std::string text(static_cast<std::size_t>(len), '?');
  text.resize(static_cast<std::size_t>(file.Read(text.data(), len)));
  return text;
}

TEST(KQFile, ClosedFilesAndImpossiblePositionsAreRefused) {
  const CTempDirectory temp;
  CKQFile file;
  ASSERT_TRUE(file.KQOpen(temp / "file", "w+b"));
  EXPECT_TRUE(WriteText(file, "0123") && file.WriteEx(0, "ab", 2) && WriteText(file, "4"));
  EXPECT_FALSE(file.WriteEx(-1, "x", 1) || file.WriteEx(0, "x", -1) || file.Seek(-1));
  EXPECT_FALSE(file.WriteEx(INT64_MAX, "x", 1));
  EXPECT_TRUE(file.Seek(INT64_MAX));
  EXPECT_EQ(ReadText(file, 10), "");
  EXPECT_EQ(file.Read(nullptr, -5), 0);
  EXPECT_TRUE(file.Seek(0));
  EXPECT_EQ(ReadText(file, 9), "ab234");
  auto user = file.GetHandle();
  char byte = 0;
  EXPECT_FALSE(file.KQOpen(temp / "missing", "r+b"));  // and the old file is closed
  EXPECT_FALSE(file.IsOpen() || WriteText(file, "x") || file.WriteEx(0, "x", 1) || file.Seek(0));
  EXPECT_FALSE(user->WriteAt(0, "x", 1) || user->ReadAt(0, &byte, 1) != 0);
  EXPECT_EQ(FileSize(temp / "missing"), -1);
  ASSERT_TRUE(file.KQOpen(temp / "file", "r+b"));
  user = file.GetHandle();
  file.CloseIf(user);
  EXPECT_FALSE(file.IsOpen() || user->WriteAt(0, "x", 1));
}

TEST(KQFile, PartialTransfersAreCompletedAndAFullDiskIsReported) {
  const CTempDirectory temp;
  CScopedSystem system(CFaultPlan().ShortTransfers(7).DiskFullAfter(1000));
  const std::string data = PatternBytes(1000);
  CKQFile file;
  ASSERT_TRUE(file.KQOpen(temp / "file", "w+b"));
  EXPECT_TRUE(WriteText(file, data));
  EXPECT_FALSE(WriteText(file, "x"));
  EXPECT_TRUE(file.Seek(0));
  EXPECT_EQ(ReadText(file, 2000), data);
  system.Heal();
  EXPECT_TRUE(WriteText(file, "x"));
}

TEST(KQFile, IsSafeWhileOthersReopenAndClose) {
  const CTempDirectory temp;
  CKQFile file;
  std::atomic<bool> stop{false};
  const auto work = [&] {
    char buffer[64] = {};
    while (!stop) {
      file.WriteEx(100, buffer, sizeof buffer);
      file.Seek(0);
      file.Read(buffer, sizeof buffer);
      EXPECT_TRUE(file.GetFilePath().empty() || file.GetFilePath().size() > temp.Path().size());
    }
  };
  std::thread one(work), two(work);
  for (int round = 0; round < 500; ++round) {
    EXPECT_TRUE(file.KQOpen(temp / std::to_string(round % 3), "w+b"));
    if (round % 2 == 0) file.Close();
  }
  stop = true;
  one.join();
  two.join();
}

}  // namespace
