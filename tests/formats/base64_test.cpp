// Base64 as RFC 4648 gives it, and what is no Base64.
#include "formats/base64.h"

#include <gtest/gtest.h>

#include <numeric>

namespace tovrek {
namespace {

TEST(Base64, StandardVectors) {
  const std::pair<std::string_view, std::string_view> vectors[] = {
      {"", ""},
      {"f", "Zg=="},
      {"fo", "Zm8="},
      {"foo", "Zm9v"},
      {"foob", "Zm9vYg=="},
      {"fooba", "Zm9vYmE="},
      {"foobar", "Zm9vYmFy"},
      {"\xfb\xff\xbf", "+/+/"},
  };
  for (const auto& [bytes, digits] : vectors) {
    EXPECT_EQ(base64Of(bytes), digits);
    EXPECT_EQ(bytesFromBase64(digits), bytes);
  }
}

TEST(Base64, AllByteValuesComeBack) {
  std::string bytes(256, '\0');
  std::iota(bytes.begin(), bytes.end(), '\0');
  EXPECT_EQ(bytesFromBase64(base64Of(bytes)), bytes);
}

TEST(Base64, RefusesWhatIsNone) {
  for (const char* digits :
       {"Zg", "Zg=", "Z===", "====", "Zg==Zg==", "Zm9v\n", "Zm9v\r\n\r\n", "Zm-_", "Z\x80=="}) {
    EXPECT_EQ(bytesFromBase64(digits), std::nullopt) << digits;
  }
}

}  // namespace
}  // namespace tovrek
