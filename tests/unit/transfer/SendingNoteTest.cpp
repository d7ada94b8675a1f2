#include "transfer/SendingNote.h"

#include <gtest/gtest.h>

namespace {

TEST(SendingNote, RecordsAreReadAsTheyWereWrittenAndTornOnesAreSomebody) {
  const SSendingRecord mine = {"run 1", "", 3, 1772978711, true, "ada@mill"};
  const SSendingRecord longest = {
      std::string(16, 'r'),   std::string(16, 'w'), INT64_MAX, INT64_MAX, false,
      std::string(1000, '\n')};
  const std::string empty(kSendingSlotBytes, '\0');
  std::string torn = SendingSlot(mine);
  torn[2] ^= 1;
  const std::string file = SendingSlot(mine) + empty + SendingSlot(longest) + torn + "cut";
  ASSERT_EQ(file.size(), 4 * kSendingSlotBytes + 3);
  const auto records = ParseSendingSlots(file);
  ASSERT_EQ(records.size(), 4U);
  EXPECT_EQ(SendingSlot(records.at(0)), SendingSlot(mine));
  EXPECT_EQ(records.at(0).m_strBy, "ada@mill");
  EXPECT_EQ(records.at(2).m_llCount, INT64_MAX);
  EXPECT_GT(records.at(2).m_strBy.size(), 20U);
  for (const int slot : {3, 4}) EXPECT_EQ(records.at(slot).m_strRun, "");
  EXPECT_EQ(ParseSendingSlots(std::string(1 << 20, 'x')).size(), std::size_t{kSendingSlots});
}

}  // namespace
