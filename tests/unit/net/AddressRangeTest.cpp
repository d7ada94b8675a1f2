// Which texts are ranges, and who is in them.

#include "net/AddressRange.h"

#include <gtest/gtest.h>

namespace {

TEST(AddressRange, HoldsTheAddressesThatBeginAlike) {
  CAddressRange range;
  ASSERT_EQ(CAddressRange::Parse("0.0.0.0/0", range), "");
  EXPECT_TRUE(range.Contains(0U) && range.Contains(0xffffffffU));
  ASSERT_EQ(CAddressRange::Parse("128.0.0.0/1", range), "");
  EXPECT_FALSE(range.Contains(0x7fffffffU));
}

TEST(AddressRange, AnythingElseIsRefusedWithAReason) {
  CAddressRange range;
  for (const char* wrong : {"", "10.1.0", "10.1.0.0.0", "10.1.0.256", "010.1.0.0", "10.1.0.0/",
                            "10.1.0.0/33", "10.1.0.0/-1", "10.1.0.0/16 ", "::1/128", "1.0.0.0/0"}) {
    EXPECT_NE(CAddressRange::Parse(wrong, range), "") << wrong;
  }
  EXPECT_NE(CAddressRange::Parse("10.1.2.3/16", range).find("10.1.0.0/16"), std::string::npos);
}

}  // namespace
