// Files that threads share: modes, positions, and closing while others work.

#include "platform/KQFile.h"

#include "platform/HardWareCommon.h"
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

TEST(KQFile, EachModeOpensAsAgreed) {
  const CTempDirectory temp;
  CKQFile file;
  EXPECT_FALSE(file.KQOpen(temp / "file", "rb") || file.KQOpen(temp / "file", "r+b"));
  ASSERT_TRUE(file.KQOpen(temp / "file", "w+b"));
  EXPECT_TRUE(WriteText(file, "0123456789"));
  ASSERT_TRUE(file.KQOpen(temp / "file", "r+b"));
  EXPECT_TRUE(WriteText(file, "ab"));
  EXPECT_EQ(ReadText(file, 3), "234");
  ASSERT_TRUE(file.KQOpen(temp / "file", "a+"));
  EXPECT_TRUE(file.Seek(0) && WriteText(file, "end"));
  ASSERT_TRUE(file.KQOpen(temp / "file", "rb"));
  EXPECT_TRUE(!WriteText(file, "x") && file.Seek(8));
  EXPECT_EQ(ReadText(file, 100), "89end");
  EXPECT_FALSE(file.KQOpen(temp.Path(), "rb"));  // a directory; the old file is closed
  EXPECT_EQ(file.GetFilePath(), temp.Path());
  EXPECT_FALSE(file.IsOpen() || WriteText(file, "x") || file.WriteEx(0, "x", 1) || file.Seek(0));
}

TEST(KQFile, WriteExPlacesDataAndRefusesImpossiblePositions) {
  constexpr std::int64_t kBeyond4GiB = (std::int64_t{5} << 30) + 1;
  const CTempDirectory temp;
  CKQFile file;
  ASSERT_TRUE(file.KQOpen(temp / "file", "w+b"));
  EXPECT_TRUE(WriteText(file, "0123"));
  EXPECT_TRUE(file.WriteEx(kBeyond4GiB, "far", 3) && file.WriteEx(0, "ab", 2));
  EXPECT_TRUE(WriteText(file, "4"));  // the current position stayed
  EXPECT_FALSE(file.WriteEx(-1, "x", 1) || file.WriteEx(0, "x", -1) || file.Seek(-1));
  EXPECT_FALSE(file.WriteEx(std::int64_t{1} << 62, "x", 1) || file.WriteEx(INT64_MAX, "x", 1));
  EXPECT_TRUE(file.Seek(INT64_MAX));
  EXPECT_EQ(ReadText(file, 10), "");
  EXPECT_EQ(file.Read(nullptr, -5), 0);
  EXPECT_TRUE(file.Seek(0));
  EXPECT_EQ(ReadText(file, 5), "ab234");
  EXPECT_EQ(CHardWareCommon::GetFileSize(temp / "file"), std::uint64_t{kBeyond4GiB} + 3);
  EXPECT_EQ(CHardWareCommon::GetFileSize(temp.Path()), 0U);
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

TEST(KQFile, AClosedHandleNeverReachesAFileOpenedLater) {
  const CTempDirectory temp;
  CKQFile file;
  ASSERT_TRUE(file.KQOpen(temp / "old", "w+b"));
  const std::shared_ptr<CFileHandle> old = file.GetHandle();
  ASSERT_TRUE(file.KQOpen(temp / "new", "w+b"));
  char byte = 'x';
  EXPECT_FALSE(old->WriteAt(0, &byte, 1));
  EXPECT_EQ(old->ReadAt(0, &byte, 1), 0);
  file.CloseIf(old);
  EXPECT_TRUE(file.IsOpen());
  file.CloseIf(file.GetHandle());
  EXPECT_FALSE(file.IsOpen());
  EXPECT_EQ(CHardWareCommon::GetFileSize(temp / "new"), 0U);
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
