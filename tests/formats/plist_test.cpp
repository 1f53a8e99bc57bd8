#include <gtest/gtest.h>

#include "formats/PlistValue.h"
#include "host/process.h"
#include "tests/support/TemporaryFolder.h"

namespace tovrek {
namespace {

using test::TemporaryFolder;

PlistDictionary everyKind() {
  PlistDictionary inner;
  inner.set("text", "a <&> ü \"x\"");
  PlistDictionary all;
  all.set("true", true);
  all.set("false", false);
  all.set("negative", -5);
  all.set("big", std::numeric_limits<int64_t>::max());
  all.set("huge", std::numeric_limits<uint64_t>::max());
  all.set("lowest", std::numeric_limits<int64_t>::min());
  all.set("tenth", 0.1);
  all.set("past", PlistValue::Date{0});
  all.set("far", PlistValue::Date{4102444800.0});
  all.set("data", PlistValue::Data{std::string("\0\xff\x01", 3)});
  all.set("empty", "");
  all.set("list", PlistValue::Array{1, "two", true, inner});
  all.set("inner", inner);
  return all;
}

TEST(Plist, EveryKindSurvivesBothForms) {
  for (const PlistFormat format : {PlistFormat::kXml, PlistFormat::kBinary}) {
    const std::string bytes = serializePlist(everyKind(), format);
    const auto back = parsePlist(bytes);
    ASSERT_TRUE(back);
    for (const auto& [key, value] : everyKind()) {
      const PlistValue* twin = back->dictionary()->find(key);
      ASSERT_NE(twin, nullptr) << key;
      EXPECT_TRUE(*twin == value) << key;
    }
  }
  for (const PlistFormat format : {PlistFormat::kXml, PlistFormat::kBinary}) {
    const std::string uid = serializePlist(PlistValue::Uid{7}, format);
    EXPECT_TRUE(*parsePlist(uid) == PlistValue(PlistValue::Uid{7}));
  }
}

TEST(Plist, OtherReadersAgree) {
  const TemporaryFolder folder;
  for (const PlistFormat format : {PlistFormat::kXml, PlistFormat::kBinary}) {
    ASSERT_TRUE(writePlist(folder.file("p.plist"), everyKind(), format));
    Outcome outcome;
    ASSERT_TRUE(runProcess({.argv = {"python3", "-c",
                                     "import plistlib,sys\n"
                                     "p=plistlib.load(open(sys.argv[1],'rb'))\n"
                                     "print(p['negative'],p['huge'],p['lowest'],p['tenth'],"
                                     "p['far'],p['data'],p['list'][3]['text'],p['true'])",
                                     folder.file("p.plist")}},
                           &outcome));
    EXPECT_EQ(outcome.output,
              "-5 18446744073709551615 -9223372036854775808 0.1 2100-01-01 00:00:00 "
              "b'\\x00\\xff\\x01' a <&> ü \"x\" True\n");
  }
}

TEST(Plist, DictionaryKeepsOrderAndComparesWithoutIt) {
  PlistDictionary one, two;
  one.set("a", 1);
  one.set("b", 2);
  two.set("b", 2);
  two.set("a", 1);
  EXPECT_TRUE(one == two);
  one.set("a", 3);
  EXPECT_EQ(one.begin()->first, "a");
  EXPECT_FALSE(one == two);
  one.remove("a");
  EXPECT_EQ(one.size(), 1u);
}

std::string nestedXml(int depth) {
  std::string text = "<plist version=\"1.0\">";
  for (int i = 0; i < depth; ++i) text += "<array>";
  for (int i = 0; i < depth; ++i) text += "</array>";
  return text + "</plist>";
}

// A binary list whose object i is an array holding only object i + 1.
std::string nestedBinary(uint32_t depth) {
  std::string text = "bplist00", table;
  const auto put = [](std::string* to, uint64_t value, int width) {
    for (int i = width - 1; i >= 0; --i) *to += static_cast<char>(value >> (8 * i) & 0xff);
  };
  for (uint32_t i = 0; i < depth; ++i) {
    put(&table, text.size(), 4);
    text += static_cast<char>(0xA1);
    put(&text, i + 1 < depth ? i + 1 : i, 4);
  }
  const uint64_t start = text.size();
  text += table + std::string(6, '\0') + "\x04\x04";
  put(&text, depth, 8);
  put(&text, 0, 8);
  put(&text, start, 8);
  return text;
}

TEST(Plist, BadInputIsRefusedWithOneText) {
  const std::string good = serializePlist(everyKind(), PlistFormat::kBinary);
  const std::string cases[] = {"",
                               "x",
                               "<plist>",
                               "bplist00",
                               nestedXml(100000),
                               nestedBinary(100000),
                               good.substr(0, good.size() - 20)};
  for (const std::string& bytes : cases) {
    ErrorText error;
    EXPECT_FALSE(parsePlist(bytes, &error)) << bytes.substr(0, 30);
    EXPECT_TRUE(error.isSet());
  }
  EXPECT_TRUE(parsePlist(nestedXml(150)));
}

TEST(Plist, TruncationsAndFlippedBytesNeverCrash) {
  const std::string good = serializePlist(everyKind(), PlistFormat::kBinary);
  for (size_t i = 0; i < good.size(); ++i) {
    parsePlist(good.substr(0, i));
    std::string flipped = good;
    flipped[i] = static_cast<char>(flipped[i] ^ 0x81);
    parsePlist(flipped);
  }
}

}  // namespace
}  // namespace tovrek
