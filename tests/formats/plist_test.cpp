#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ctime>

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

TEST(Plist, BinaryFormHasEqualThingsOnce) {
  PlistValue::Array same;
  for (int i = 0; i < 1000; ++i) {
    same.emplace_back(PlistValue::Data{std::string(20, 'd')});
    same.emplace_back("text");
  }
  // Header, the list and its numbers, what it holds, three offsets, trailer.
  EXPECT_EQ(serializePlist(same, PlistFormat::kBinary).size(), 8u + 4 + 2000 + 23 + 5 + 3 * 2 + 32);
  // Of a text that is no UTF-8 the rest is left.
  EXPECT_EQ(parsePlist(serializePlist("\xff\xc3\xa4", PlistFormat::kBinary)),
            PlistValue("\xc3\xa4"));
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

std::string repeated(std::string_view text, int times) {
  std::string result;
  for (int i = 0; i < times; ++i) result += text;
  return result;
}

std::string nestedXml(int depth) {
  return "<plist>" + repeated("<array>", depth) + repeated("</array>", depth) + "</plist>";
}

// A binary list of the given objects, the first of which is its top. References take two bytes.
std::string binaryOf(const std::vector<std::string>& objects) {
  std::string text = "bplist00", table;
  const auto put = [](std::string* to, uint64_t value, int width) {
    for (int i = width - 1; i >= 0; --i) *to += static_cast<char>(value >> (8 * i) & 0xff);
  };
  for (const std::string& object : objects) {
    put(&table, text.size(), 4);
    text += object;
  }
  const uint64_t start = text.size();
  text += table + std::string(6, '\0') + "\x04\x02";
  put(&text, objects.size(), 8);
  put(&text, 0, 8);
  put(&text, start, 8);
  return text;
}

std::string reference(size_t object) {
  return {static_cast<char>(object >> 8), static_cast<char>(object & 0xff)};
}

// Object i is an array that holds object i + 1 `copies` times; the last holds itself if `cyclic`.
std::string chainedBinary(size_t depth, size_t copies, bool cyclic) {
  std::vector<std::string> objects;
  for (size_t i = 0; i < depth; ++i) {
    std::string array(1, static_cast<char>(0xA0 | copies));
    const size_t next = i + 1 < depth ? i + 1 : i;
    for (size_t copy = 0; copy < copies; ++copy) array += reference(next);
    objects.push_back(i + 1 < depth || cyclic ? array : std::string("\xA0"));
  }
  return binaryOf(objects);
}

std::string numbered(const std::string& before, const std::string& behind, size_t count) {
  std::string result;
  for (size_t i = 0; i < count; ++i) result += before + std::to_string(i) + behind;
  return result;
}

TEST(Plist, BadInputIsRefusedWithItsReason) {
  const std::string good = serializePlist(everyKind(), PlistFormat::kBinary);
  const struct {
    std::string bytes;
    const char* reason;
  } cases[] = {
      {"", "it is empty"},
      {"x", "line 1: "},
      {"<plist>", "line 1: "},
      {"<plist/>", "it holds no value"},
      {"bplist00", "it ends too early"},
      {good.substr(0, good.size() - 20), "its trailer is damaged"},
      {nestedXml(100000), "nested too deeply"},
      // What only looks like an end does not make it flatter.
      {"<plist>" + repeated("<array><!-- </array> -->", 100000), "nested too deeply"},
      {"<plist>" + repeated("<array a=\"/>\">", 100000), "nested too deeply"},
      {"<plist><array>" + repeated("<true/>", 1000001) + "</array></plist>", "too many values"},
      {"<plist" + numbered(" a", "=''", 1001) + "/>", "line 1: an element has too many attributes"},
      {"<!DOCTYPE plist [" + numbered("<!ATTLIST plist a", " CDATA '1'>", 101) + "]><plist/>",
       "line 1: too many attributes are declared"},
      {"<!DOCTYPE plist [<!ENTITY e SYSTEM \"/etc/passwd\">]><plist><string>&e;</string></plist>",
       "line 1: an entity from outside"},
      {chainedBinary(60000, 1, true), "nested too deeply"},
      {chainedBinary(100, 10, false), "too many values"},
      {binaryOf({"\x52" + std::string("a\0", 2)}), "a zero character"},
      {binaryOf({std::string("\x61\xd8\x00", 3)}), "not in its encoding"},
      {binaryOf({"\x51\xff"}), "not in its encoding"},
      {binaryOf({"\x5e"}), "longer than the list"},
      {binaryOf({"\xA1" + reference(9)}), "an object that it does not have"},
      {binaryOf({"\xD1" + reference(1) + reference(1), "\x09"}), "a key is no text"},
      {"<?xml version=\"1.0\" encoding=\"x-none\"?><plist><true/></plist>", "line 1: "},
      {"<plist><string>\xff</string></plist>", "line 1: "},
      {"<?xml version=\"1.0\" encoding=\"utf-7//ignore\"?><plist><true/></plist>", "line 1: "},
      {"<!DOCTYPE plist [<!ENTITY e \"x\">]><plist><string>&e;</string></plist>",
       "unknown entity e"},
      {"<plist><dict><string>a</string></dict></plist>", "do not take turns"},
      {"<plist><dict><key>a</key></dict></plist>", "a key without a value"},
      {"<plist><integer>12x</integer></plist>", "no <integer>: 12x"},
      {"<plist>\n<colour/></plist>", "line 2: unknown element <colour>"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.bytes.substr(0, 60));
    ErrorText error;
    EXPECT_FALSE(parsePlist(c.bytes, &error));
    EXPECT_THAT(error.text(), testing::HasSubstr(c.reason));
    EXPECT_THAT(error.text(), testing::StartsWith("The data couldn't be read"));
  }
  EXPECT_TRUE(parsePlist(nestedXml(500)));
  EXPECT_TRUE(parsePlist(chainedBinary(500, 1, false)));
}

std::string wide(std::string_view text, bool littleEndian) {
  std::string result;
  for (const char c : text) {
    result += littleEndian ? std::string{c, '\0'} : std::string{'\0', c};
  }
  return result;
}

TEST(Plist, EveryEncodingIsReadAndWrittenAsUtf8) {
  const auto document = [](const std::string& encoding, const std::string& text) {
    return "<?xml version=\"1.0\"" + encoding + "?>\n<plist version=\"1.0\"><string>" + text +
           "</string></plist>";
  };
  const struct {
    const char* name;
    std::string bytes, text;
  } cases[] = {
      {"UTF-8 undeclared", document("", "\xc3\xbc"), "\xc3\xbc"},
      {"UTF-8 with its mark", "\xef\xbb\xbf" + document("", "\xc3\xbc"), "\xc3\xbc"},
      {"Latin 1", document(" encoding=\"ISO-8859-1\"", "\xfc"), "\xc3\xbc"},
      {"Windows", document(" encoding=\"windows-1252\"", "\x80"), "\xe2\x82\xac"},
      {"UTF-16, low byte first", "\xff\xfe" + wide(document(" encoding=\"UTF-16\"", "\xfc"), true),
       "\xc3\xbc"},
      {"UTF-16, high byte first", "\xfe\xff" + wide(document("", "\xfc"), false), "\xc3\xbc"},
      {"carriage return", document("", "a&#13;b&#xD;\r\nc"), "a\rb\r\nc"},
      {"sections and references", document("", "<![CDATA[<&]]>&lt;&#xfc;"), "<&<\xc3\xbc"},
      {"zero bytes behind", document("", "a") + std::string(3, '\0'), "a"},
      {"binary with a carriage return",
       binaryOf({"\x53"
                 "a\rb"}),
       "a\rb"},
      {"binary beyond the base plane", binaryOf({std::string("\x62\xd8\x3d\xde\x00", 5)}),
       "\xf0\x9f\x98\x80"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ErrorText error;
    const auto value = parsePlist(c.bytes, &error);
    ASSERT_TRUE(value) << error.text();
    EXPECT_EQ(*value, PlistValue(c.text));
    for (const PlistFormat format : {PlistFormat::kXml, PlistFormat::kBinary}) {
      EXPECT_EQ(parsePlist(serializePlist(*value, format)), value);
    }
  }
}

TEST(Plist, LastOfRepeatedKeysHoldsAndManyKeysTakeNoTime) {
  const auto repeatedKey = parsePlist(
      "<dict><key>a</key><true/><key>b</key><true/><key>a</key><integer>-0x10</integer></dict>");
  ASSERT_TRUE(repeatedKey);
  PlistDictionary expected;
  expected.set("a", -16);
  expected.set("b", true);
  EXPECT_EQ(*repeatedKey, PlistValue(expected));
  EXPECT_EQ(repeatedKey->dictionary()->begin()->first, "a");

  PlistDictionary large;
  for (int i = 0; i < 40000; ++i) large.append("key " + std::to_string(i), i);
  const std::clock_t start = std::clock();
  for (const PlistFormat format : {PlistFormat::kXml, PlistFormat::kBinary}) {
    EXPECT_EQ(parsePlist(serializePlist(large, format)), PlistValue(large));
  }
  EXPECT_LT(std::clock() - start, 10 * CLOCKS_PER_SEC);
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
