// Obfuscation, escaping, checksum files.
#include <gtest/gtest.h>

#include "formats/PlistValue.h"
#include "reserve/checksum_plist.h"
#include "reserve/escaping.h"
#include "reserve/obfuscation.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/matchers.h"

namespace tovrek {
namespace {

TEST(Obfuscation, IsItsOwnInverse) {
  EXPECT_THAT(obfuscate("abc", "\x01"), Optional(std::string("`cb")));
  EXPECT_THAT(obfuscate("abcd", "\x01\x02"), Optional(std::string("``bf")));
  EXPECT_THAT(obfuscate("abc", ""), Optional(std::string("abc")));
  // One character of two bytes, of which only the first is ever used: 0xc3 makes bytes invalid.
  EXPECT_EQ(obfuscate("ab", "\xc3\xa9"), std::nullopt);
  EXPECT_THAT(obfuscate("\xa2\xa2", "\xc3\xa9"), Optional(std::string("aa")));
  const std::string text = "Gr\xc3\xbc\xc3\x9f";
  const std::optional<std::string> hidden = obfuscate(text, "\x01\x02");
  ASSERT_TRUE(hidden);
  EXPECT_NE(*hidden, text);
  EXPECT_THAT(obfuscate(*hidden, "\x01\x02"), Optional(text));
}

TEST(Escaping, GoesThereAndBack) {
  const std::string plain = "$&+,/:;=?@ \t#<>\"\n";
  const std::string codes = "%24%26%2B%2C%2F%3A%3B%3D%3F%40%20%09%23%3C%3E%22%0A";
  EXPECT_EQ(convertToEscapeString(plain), codes);
  EXPECT_EQ(convertFromUnescapedString(codes), plain);
  EXPECT_EQ(convertToEscapeString("100%  ~a."), "100%%20%20~a.");
  EXPECT_EQ(convertFromUnescapedString("%25 %2b"), "%25 %2b");
}

TEST(ChecksumPlist, HoldsOneKey) {
  test::TemporaryFolder folder;
  const std::string path = folder.file("c.plist");
  EXPECT_TRUE(GenerateChecksumPlistFile("12ab", "CheckSum", path));
  PlistDictionary expected;
  expected.set("CheckSum", "12ab");
  EXPECT_EQ(readPlistDictionary(path), expected);
  EXPECT_FALSE(GenerateChecksumPlistFile("1", "k", folder.file("no/c.plist")));
}

}  // namespace
}  // namespace tovrek
