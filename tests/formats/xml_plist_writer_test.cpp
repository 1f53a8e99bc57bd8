// The exact text of property lists, in both layouts.
#include <gtest/gtest.h>

#include <limits>

#include "formats/XmlPlistWriter.h"

namespace tovrek {
namespace {

// What stands between the first line of the list and its last.
std::string written(const PlistValue& value, XmlPlistLayout layout) {
  XmlPlistWriter writer(layout);
  writer.value(value);
  const std::string text = writer.finish();
  constexpr std::string_view kStart =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
      "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">\n";
  constexpr std::string_view kEnd = "</plist>\n";
  EXPECT_TRUE(text.starts_with(kStart) && text.ends_with(kEnd)) << text;
  return text.substr(kStart.size(), text.size() - kStart.size() - kEnd.size());
}

TEST(XmlPlistWriter, OneValue) {
  const double infinity = std::numeric_limits<double>::infinity();
  const struct {
    PlistValue value;
    std::string text;
  } cases[] = {
      {"a<&>\"'\n", "<string>a&lt;&amp;&gt;\"'\n</string>\n"},
      {"", "<string></string>\n"},
      {true, "<true/>\n"},
      {std::numeric_limits<int64_t>::min(), "<integer>-9223372036854775808</integer>\n"},
      {std::numeric_limits<uint64_t>::max(), "<integer>18446744073709551615</integer>\n"},
      {0.1, "<real>0.10000000000000001</real>\n"},
      {1000.0, "<real>1000</real>\n"},
      {1e17, "<real>1e+17</real>\n"},
      {-infinity, "<real>-infinity</real>\n"},
      {PlistValue::Date{4102444800.9}, "<date>2100-01-01T00:00:00Z</date>\n"},
      {PlistValue::Date{-50000000000.0}, "<date>385-07-25T07:06:40Z</date>\n"},
      {PlistValue::Uid{7}, "<dict>\n\t<key>CF$UID</key>\n\t<integer>7</integer>\n</dict>\n"},
      {PlistValue::Data{""}, "<data>\n</data>\n"},
      {PlistValue::Data{std::string(58, '\0')},
       "<data>\n" + std::string(76, 'A') + "\nAA==\n</data>\n"},
      {PlistValue::Array{1, "x"},
       "<array>\n\t<integer>1</integer>\n\t<string>x</string>\n</array>\n"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(written(c.value, XmlPlistLayout::kFile), c.text);
    EXPECT_EQ(written(c.value, XmlPlistLayout::kSignature), c.text);
  }
}

TEST(XmlPlistWriter, WhereTheLayoutsDiffer) {
  PlistDictionary dictionary;
  dictionary.set("b", 0.0);
  dictionary.set("a", PlistDictionary());
  dictionary.set("B", PlistValue::Array());
  EXPECT_EQ(written(dictionary, XmlPlistLayout::kFile),
            "<dict>\n\t<key>b</key>\n\t<real>0.0</real>\n\t<key>a</key>\n\t<dict/>\n"
            "\t<key>B</key>\n\t<array/>\n</dict>\n");
  EXPECT_EQ(written(dictionary, XmlPlistLayout::kSignature),
            "<dict>\n\t<key>B</key>\n\t<array>\n\t</array>\n\t<key>a</key>\n\t<dict>\n\t</dict>\n"
            "\t<key>b</key>\n\t<real>0</real>\n</dict>\n");
}

// Lines of Base64 get shorter the deeper they stand, down to twelve digits behind eight tabs.
TEST(XmlPlistWriter, DataDeepInside) {
  for (const size_t depth : {0u, 1u, 3u, 8u, 9u, 12u}) {
    PlistValue value = PlistValue::Data{std::string(57, '\0')};
    for (size_t i = 0; i < depth; ++i) value = PlistValue::Array{value};
    const size_t indent = std::min<size_t>(depth, 8);
    const size_t width = (76 - 8 * indent) / 4 * 4;
    std::string expected = std::string(depth, '\t') + "<data>\n";
    for (size_t at = 0; at < 76; at += width) {
      expected += std::string(indent, '\t') + std::string(std::min(width, 76 - at), 'A') + "\n";
    }
    expected += std::string(depth, '\t') + "</data>\n";
    EXPECT_NE(written(value, XmlPlistLayout::kFile).find(expected), std::string::npos) << depth;
  }
}

}  // namespace
}  // namespace tovrek
