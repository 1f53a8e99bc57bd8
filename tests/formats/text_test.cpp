// Base64 and UTF-8.
#include <gtest/gtest.h>

#include "formats/WEX_Base64.h"
#include "host/utf8.h"
#include "tests/support/matchers.h"

namespace tovrek {
namespace {

TEST(Base64, EncodesWithAndWithoutLines) {
  const std::vector<std::pair<std::string, std::string>> vectors = {
      {"", ""},        {"f", "Zg=="},          {"fo", "Zm8="},
      {"foo", "Zm9v"}, {"foobar", "Zm9vYmFy"}, {"\xff\xfe\xfd", "//79"}};
  for (const auto& [bytes, digits] : vectors) {
    EXPECT_EQ(WEX_Base64::encode(bytes), digits);
    EXPECT_EQ(WEX_Base64::encodeWithoutLinebreaks(bytes), digits);
  }
  const std::string line48(48, 'a'), digits64 = WEX_Base64::encodeWithoutLinebreaks(line48);
  EXPECT_EQ(digits64.size(), 64U);
  EXPECT_EQ(WEX_Base64::encode(line48), digits64);
  EXPECT_EQ(WEX_Base64::encode(line48 + line48 + "f"), digits64 + "\r\n" + digits64 + "\r\nZg==");
  EXPECT_THAT(WEX_Base64::decode(WEX_Base64::encode(line48 + line48 + "f")),
              Optional(line48 + line48 + "f"));
}

TEST(Base64, DecodesStrictly) {
  const std::vector<std::pair<std::string, std::optional<std::string>>> cases = {
      {"", ""},
      {"Zg==", "f"},
      {"Z\r\ng=\n=", "f"},
      {"w7w=", "\xc3\xbc"},
      {"/w==", std::nullopt},  // no UTF-8
      {"fn5-", "~~~"},         // "-" stands for "+"
      {"w7w-", std::nullopt},  // beyond ASCII after a "-"
      {"fn5_", std::nullopt},  // "_" stands for nothing
      {"Zg=", std::nullopt},
      {"Zg", std::nullopt},
      {"Zg===", std::nullopt},
      {"Z===", std::nullopt},
      {"====", std::nullopt},
      {"Zg==Zg==", std::nullopt},
      {"Zm 9v", std::nullopt},
      {"Zm\t9", std::nullopt},
  };
  for (const auto& [digits, bytes] : cases) EXPECT_EQ(WEX_Base64::decode(digits), bytes) << digits;
}

TEST(Utf8, KnowsItsOwn) {
  for (const char* good :
       {"", "a", "\xc2\x80", "\xe0\xa0\x80", "\xed\x9f\xbf", "\xf4\x8f\xbf\xbf"}) {
    EXPECT_TRUE(isUtf8(good)) << good;
  }
  for (const char* bad : {"\x80", "\xc1\xbf", "\xc3", "\xe0\x9f\xbf", "\xed\xa0\x80", "\xe2\x82",
                          "\xf0\x8f\xbf\xbf", "\xf4\x90\x80\x80", "\xff", "\xc3z"}) {
    EXPECT_FALSE(isUtf8(bad)) << bad;
  }
  EXPECT_EQ(utf16Length("a\xc3\xa9\xf0\x9f\x98\x80"), 4U);
}

}  // namespace
}  // namespace tovrek
