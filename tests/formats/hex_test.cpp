#include "formats/hex.h"

#include <gtest/gtest.h>

namespace tovrek {
namespace {

TEST(Hex, AnyByteBothWays) {
  const std::string bytes("\x00\x0f\x80\xff", 4);
  EXPECT_EQ(hexLower(bytes), "000f80ff");
  EXPECT_EQ(hexUpper(bytes), "000F80FF");
  EXPECT_EQ(bytesFromHex("000f80fF"), bytes);
  EXPECT_EQ(bytesFromHex(""), "");
}

TEST(Hex, RefusesWhatIsNoDigit) {
  for (const char* digits : {"0", "000", "0g", "g0", "0x", " 0", "0/", "0:", "0@", "0`", "0\x80"}) {
    EXPECT_EQ(bytesFromHex(digits), std::nullopt) << digits;
  }
}

}  // namespace
}  // namespace tovrek
