#include "client/ReadAhead.h"

#include "platform/KQFile.h"
#include "support/TestSystem.h"

namespace {

TEST(ReadAhead, GivesOutEachFileInWhateverOrderAndLooksAgainForWhatWasMissing) {
  CScopedSystem system;
  const CTempDirectory temp;
  std::vector<Channel_Key_Value> records(40);
  for (std::size_t i = 0; i < records.size(); ++i) {
    records[i].m_strPath = temp / (std::to_string(i) + (i == 3 ? ".tm" : ".txt"));
    if (i != 7) WriteWholeFile(records[i].m_strPath, std::to_string(i));
  }
  CReadAhead ahead(records);
  const auto take = [&](std::initializer_list<std::size_t> wanted) {
    std::string all;
    for (const std::size_t record : wanted) {
      char text[8] = {};
      const std::shared_ptr<CFileHandle> file = ahead.Take(record);
      if (file != nullptr) file->ReadAt(0, text, sizeof text - 1);
      all += std::string(text) + " ";
    }
    return all;
  };
  EXPECT_EQ(take({0, 1}), "0 1 ");
  EXPECT_GT(system.Calls(EOperation::kOpen), 10);
  EXPECT_LT(system.Calls(EOperation::kOpen), 30);
  WriteWholeFile(temp / "7.txt", "late");
  EXPECT_EQ(take({3, 7, 8}), "3 late 8 ");
  EXPECT_EQ(take({8, 2, 39, 38}), "8 2 39 38 ");  // as those are that are tried again
}

}  // namespace
