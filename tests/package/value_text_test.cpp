#include "package/value_text.h"

#include <gtest/gtest.h>

namespace tovrek {
namespace {

TEST(ValueTexts, CoverEveryKind) {
  PlistDictionary dictionary;
  dictionary.set("k", PlistValue::Array{1, "b"});
  const std::vector<std::pair<PlistValue, std::string>> cases = {
      {"text", "text"},
      {true, "1"},
      {-5, "-5"},
      {0.5, "0.5"},
      {PlistValue::Date{1588327872.0}, "2020-05-01 10:11:12 +0000"},
      {PlistValue::Data{"\x01\xff"}, "<01ff>"},
      {dictionary, "{k = (1, b); }"},
  };
  for (const auto& [value, text] : cases) EXPECT_EQ(returnString(&value), text);
  EXPECT_EQ(returnString(nullptr), "");
}

}  // namespace
}  // namespace tovrek
