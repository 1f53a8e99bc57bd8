// Obfuscation, escaping, value texts, base64 and keyed archives.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "formats/utf8.h"
#include "package/HelperMethods.h"
#include "package/KeyedArchiver.h"
#include "package/WEX_Base64.h"

namespace tovrek {
namespace {

using testing::Optional;

TEST(Obfuscation, IsItsOwnInverse) {
  EXPECT_THAT(HelperMethods::obfuscate("abc", "\x01"), Optional(std::string("`cb")));
  EXPECT_THAT(HelperMethods::obfuscate("abcd", "\x01\x02"), Optional(std::string("``bf")));
  EXPECT_THAT(HelperMethods::obfuscate("abc", ""), Optional(std::string("abc")));
  // One character of two bytes, of which only the first is ever used: 0xc3 makes bytes invalid.
  EXPECT_EQ(HelperMethods::obfuscate("ab", "\xc3\xa9"), std::nullopt);
  EXPECT_THAT(HelperMethods::obfuscate("\xa2\xa2", "\xc3\xa9"), Optional(std::string("aa")));
  const std::string text = "Gr\xc3\xbc\xc3\x9f";
  const std::optional<std::string> hidden = HelperMethods::obfuscate(text, "\x01\x02");
  ASSERT_TRUE(hidden);
  EXPECT_NE(*hidden, text);
  EXPECT_THAT(HelperMethods::obfuscate(*hidden, "\x01\x02"), Optional(text));
}

TEST(Escaping, GoesThereAndBack) {
  const std::string plain = "$&+,/:;=?@ \t#<>\"\n";
  const std::string codes = "%24%26%2B%2C%2F%3A%3B%3D%3F%40%20%09%23%3C%3E%22%0A";
  EXPECT_EQ(HelperMethods::convertToEscapeString(plain), codes);
  EXPECT_EQ(HelperMethods::convertFromUnescapedString(codes), plain);
  EXPECT_EQ(HelperMethods::convertToEscapeString("100%  ~a."), "100%%20%20~a.");
  EXPECT_EQ(HelperMethods::convertFromUnescapedString("%25 %2b"), "%25 %2b");
}

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
  for (const auto& [value, text] : cases) EXPECT_EQ(HelperMethods::returnString(&value), text);
  EXPECT_EQ(HelperMethods::returnString(nullptr), "");
}

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

TEST(Base64, CarriesObjectsInTwoLayers) {
  PlistDictionary inner;
  inner.set("date", PlistValue::Date{1588327872.0});
  inner.set("data", PlistValue::Data{std::string("\0\xff", 2)});
  PlistDictionary value;
  value.set("text", "x");
  value.set("list", PlistValue::Array{1, true, 0.25, inner, PlistValue::Array{}});
  value.set("empty", PlistDictionary());
  for (const PlistValue& object : {PlistValue(value), PlistValue("text"), PlistValue(7)}) {
    const std::string text = WEX_Base64::encodeObject(object);
    EXPECT_EQ(text.find_first_of("\r\n"), std::string::npos);
    EXPECT_TRUE(WEX_Base64::decode(text)->starts_with("YnBsaXN0"));  // "bplist"
    EXPECT_THAT(WEX_Base64::objectDecode(text), Optional(object));
  }
  for (const char* text : {"", "Zm9v", "!", "Wm05dg=="}) {
    EXPECT_EQ(WEX_Base64::objectDecode(text), std::nullopt) << text;
  }
}

TEST(KeyedArchive, RefusesWhatUnfoldsWithoutEnd) {
  const auto archive = [](const PlistValue::Array& objects, PlistValue root) {
    PlistDictionary top, plist;
    top.set("root", std::move(root));
    plist.set("$archiver", "NSKeyedArchiver");
    plist.set("$top", top);
    plist.set("$objects", objects);
    return serializePlist(plist, PlistFormat::kBinary);
  };
  const auto listOf = [](const std::vector<uint64_t>& ids) {
    PlistValue::Array references;
    for (const uint64_t id : ids) references.emplace_back(PlistValue::Uid{id});
    PlistDictionary list;
    list.set("NS.objects", references);
    return PlistValue(list);
  };
  const PlistValue::Uid first{1};
  EXPECT_THAT(unarchiveObject(archive({"$null", listOf({2, 2}), "a"}, first)),
              Optional(PlistValue(PlistValue::Array{"a", "a"})));
  EXPECT_EQ(unarchiveObject(archive({"$null", listOf({1})}, first)), std::nullopt);
  EXPECT_EQ(unarchiveObject(archive({"$null", listOf({9})}, first)), std::nullopt);
  EXPECT_EQ(unarchiveObject(archive({"$null", listOf({0})}, first)), std::nullopt);
  EXPECT_EQ(unarchiveObject(archive({"$null", "a"}, "root")), std::nullopt);
  PlistValue::Array doubling = {"$null"};
  for (uint64_t i = 1; i < 40; i++) doubling.push_back(listOf({i + 1, i + 1}));
  doubling.emplace_back("a");
  EXPECT_EQ(unarchiveObject(archive(doubling, first)), std::nullopt);
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
