// XML documents and the event reader.
#include <gtest/gtest.h>

#include "formats/XmlDocument.h"
#include "formats/XmlReader.h"
#include "formats/xml_text.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/hostile_xml.h"

namespace tovrek::test {
namespace {

std::optional<XmlDocument> parsed(const std::string& text) {
  return XmlDocument::parse(text);
}

std::string declaredAttributes(int count) {
  std::string text = "<!ATTLIST r";
  for (int i = 0; i < count; ++i) text += " declared" + std::to_string(i) + " CDATA 'value'";
  return text + ">";
}

// The events as one line: "<a", "text", ">a", "!" for a fault.
class Transcript : public XmlEvents {
 public:
  void startElement(std::string_view name) override { text.append("<").append(name); }
  void characters(std::string_view piece) override { text.append("'").append(piece).append("'"); }
  void endElement(std::string_view name) override { text.append(">").append(name); }
  void parseError(std::string_view message) override {
    text += "!";
    error = message;
  }
  std::string text, error;
};

TEST(XmlDocument, HoldsAnyTextWithoutBreaking) {
  const struct {
    std::string given, held;
  } cases[] = {
      {"a & b < c > \"d\" 'e' &amp; ]]>", "a & b < c > \"d\" 'e' &amp; ]]>"},
      {"line\r\nbreak\ttab", "line\r\nbreak\ttab"},
      {std::string("nul\0 bell\a esc\x1b del\x7f", 20), "nul bell esc del\x7f"},
      {"Gr\xc3\xbc\xc3\x9f \xf0\x9f\x98\x80", "Gr\xc3\xbc\xc3\x9f \xf0\x9f\x98\x80"},
      {"cut \xc3", "cut "},
      {"long form \xc0\x80 surrogate \xed\xa0\x80 high \xf5\x80\x80\x80 \xff",
       "long form  surrogate  high  "},
      {"noncharacter \xef\xbf\xbf", "noncharacter "},
      {"", ""},
  };
  for (const auto& test : cases) {
    XmlElement root("Root");
    root.attribute("key", test.given).append(XmlElement("Child", test.given));
    const XmlDocument document(root);
    for (const XmlLayout layout : {XmlLayout::kCompact, XmlLayout::kIndented}) {
      const auto again = parsed(document.serialize(layout));
      ASSERT_TRUE(again) << test.given;
      EXPECT_EQ(again->root().child("Child")->text(), test.held);
      EXPECT_EQ(again->root().attribute("key"), test.held);
    }
    auto edited = parsed("<a><b>old<c/></b></a>");
    auto nodes = edited->find("/a/b");
    nodes->front().setText(test.given);
    EXPECT_EQ(parsed(edited->serialize(XmlLayout::kCompact))->root().child("b")->text(), test.held);
  }
}

TEST(XmlDocument, LayoutAndDeclaration) {
  XmlElement root("a");
  root.append(XmlElement("b", "x")).append(XmlElement("c").append(XmlElement("d")));
  const XmlDocument document(root);
  const std::string head = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  EXPECT_EQ(document.serialize(XmlLayout::kCompact), head + "<a><b>x</b><c><d/></c></a>\n");
  EXPECT_EQ(document.serialize(XmlLayout::kIndented),
            head + "<a>\n    <b>x</b>\n    <c>\n        <d/>\n    </c>\n</a>\n");
  // Other versions and encodings are written as ours; white space and CDATA stay.
  const std::string latin1 =
      "<?xml version='1.1' encoding='ISO-8859-1'?><a> <b><![CDATA[<\xfc>]]></b>\n</a>";
  EXPECT_EQ(parsed(latin1)->serialize(XmlLayout::kCompact),
            head + "<a> <b><![CDATA[<\xc3\xbc>]]></b>\n</a>\n");
  // So do comments and instructions, wherever they stand; declarations of namespaces go first.
  EXPECT_EQ(
      parsed("<!-- 1 --><?p d?><a k='\"&#10;' xmlns='u'>x<!-- 2 --><![CDATA[y]]>&#13;</a ><?q?>")
          ->serialize(XmlLayout::kCompact),
      head +
          "<!-- 1 -->\n<?p d?>\n<a xmlns=\"u\" k=\"&quot;&#10;\">x<!-- 2 --><![CDATA[y]]>"
          "&#13;</a>\n<?q?>\n");
}

TEST(XmlDocument, FindsFromAboveTheRoot) {
  auto document = parsed("<a><i k='1'>x</i><j><i k='2'>y</i></j></a>");
  const struct {
    const char* xpath;
    int count;  // -1: not an expression for nodes
  } cases[] = {{"./a/i", 1},       {"//i", 2},         {"/a/j/i[@k='2']", 1},
               {"i", 0},           {"//i[@k='3']", 0}, {"/a/*", 2},
               {"//i[1]", 2},      {"/a/i[2]", 0},     {"//i[@k=\"1\"]", 1},
               {"/", 0},           {"//i[", -1},       {"count(//i)", -1},
               {"", -1},           {"nope:i", -1},     {"//i[0]", -1},
               {"//i[@k='1'", -1}, {"/a//", -1},       {"//", -1}};
  for (const auto& test : cases) {
    const auto nodes = document->find(test.xpath);
    EXPECT_EQ(nodes ? static_cast<int>(nodes->size()) : -1, test.count) << test.xpath;
  }
  document->find("//i")->at(1).remove();
  document->find("/a/i")->at(0).setText("<new>");
  document->root().append(XmlElement("last", "z"));
  EXPECT_NE(document->serialize(XmlLayout::kCompact)
                .find("<a><i k=\"1\">&lt;new&gt;</i><j/><last>z</last></a>"),
            std::string::npos);
  // Names without a prefix mean elements without a namespace.
  auto named = parsed("<a xmlns:p='u'><p:i/><i/><i xmlns='u'><k/><k xmlns=''/></i><q:i/></a>");
  EXPECT_EQ(named->find("/a/i")->size(), 1U);
  EXPECT_EQ(named->find("//k")->size(), 1U);
  EXPECT_EQ(named->root().children().at(0).name(), "i");
  EXPECT_EQ(named->root().children().at(3).name(), "q:i");
}

TEST(XmlDocument, RefusesWhatIsNoDocument) {
  TemporaryFolder folder;
  const std::string secret = folder.write("secret", "do not read");
  const struct {
    std::string text, reason;
  } cases[] = {
      {"", "no element found"},
      {"no xml", "line 1: syntax error"},
      {"<a>\n<b></a>", "line 2: mismatched tag"},
      {"<a>&undeclared;</a>", "undefined entity"},
      {"<!DOCTYPE a [<!ENTITY x SYSTEM \"" + secret + "\">]><a>&x;</a>", "outside"},
      {"<!DOCTYPE a SYSTEM \"" + secret + "\"><a/>", "outside"},
      {"<!DOCTYPE a [<!ENTITY % x SYSTEM \"" + secret + "\">%x;]><a/>", "outside"},
      {nested(300), "too deep"},
      {laughs(), "amplification"},
      {"<r>\n" + attributes(1001) + "</r>", "line 2: an element has too many attributes"},
      {"<r>\"" + attributes(1001) + "</r>", "too many attributes"},
      {"<!DOCTYPE r [<!ENTITY e \"" + attributes(400) + "\">]><r>&e;</r>", "entity is too long"},
      {"<!DOCTYPE r [" + declaredAttributes(45) + declaredAttributes(45) + "]><r/>",
       "too many attributes are declared"},
      {"<!DOCTYPE r PUBLIC '' '<!--'><r/>", "a declaration holds markup"},
  };
  for (const auto& test : cases) {
    ErrorText error;
    EXPECT_FALSE(XmlDocument::parse(test.text, &error)) << test.text;
    EXPECT_NE(error.text().find(test.reason), std::string::npos) << error.text();
  }
  const std::string type = "<!DOCTYPE a [<!ENTITY x \"1\"><!ENTITY y \"&x;&x;\">]>";
  const auto declared = parsed(type + "<a>&y;</a>");
  ASSERT_TRUE(declared);
  EXPECT_NE(declared->serialize(XmlLayout::kCompact).find(type + "\n<a>11</a>\n"),
            std::string::npos);
  for (const std::string& fine : {"<r><!--" + attributes(2000) + "--><?p " + attributes(2000) +
                                      "?><![CDATA[" + attributes(2000) + "]]></r>",
                                  attributes(1000, "\"")}) {
    EXPECT_TRUE(parsed(fine));
  }
  // Attributes that are only declared are in no element.
  EXPECT_FALSE(
      parsed("<!DOCTYPE r [" + declaredAttributes(2) + "]><r/>")->root().attribute("declared0"));
  EXPECT_FALSE(XmlDocument::readFile(folder.file("missing")));
}

// What the elements around declare is not looked through for each element.
TEST(XmlDocument, ManyAttributesAroundManyElementsTakeNoTime) {
  std::string text;
  const std::string many = attributes(999, "'");
  const std::string opening = many.substr(0, many.size() - 2) + " xmlns:p='u'>";
  for (int i = 0; i < 200; ++i) text += opening;
  for (int i = 0; i < 200'000; ++i) text += "<p:b/>";
  for (int i = 0; i < 200; ++i) text += "</a>";
  const auto document = parsed(text);
  ASSERT_TRUE(document);
  EXPECT_EQ(document->find("//b")->size(), 0U);
}

TEST(XmlReader, ReportsEventsUpToTheFirstFault) {
  const struct {
    std::string text, events;
    bool wellFormed;
  } cases[] = {
      {"<a x='1'>t<b:c xmlns:b='u'/></a>", "<a't'<b:c>b:c>a", true},
      {"<a><![CDATA[<&]]></a>", "<a'<&'>a", true},
      {"<?xml version='1.0'?><!-- c --><a>\n</a>\n", "<a'\n'>a", true},
      {"<a><b>", "<a<b!", false},
      {"", "!", false},
      {"<a>&x;</a>", "<a!", false},
      {"<!DOCTYPE a [<!ENTITY x 'v<b/>'>]><a>&x;&x;</a>", "<a'v'<b>b'v'<b>b>a", true},
      {"<!DOCTYPE a SYSTEM 'file:///etc/passwd'><a/>", "<a>a", true},
      {"<!DOCTYPE a SYSTEM 'file:///etc/passwd'><a>&x;</a>", "<a!", false},
      {"<!DOCTYPE a [<!ENTITY x SYSTEM 'file:///etc/passwd'>]><a>&x;</a>", "<a!", false},
      {"<a/><b/>", "<a>a!", false},
      {std::string("\xff\xfe<\0a\0/\0>\0", 10), "<a>a", true},
      {attributes(1001), "!", false},
  };
  for (const auto& test : cases) {
    Transcript transcript;
    EXPECT_EQ(readXml(test.text, transcript), test.wellFormed) << test.text;
    EXPECT_EQ(transcript.text, test.events) << test.text;
    EXPECT_EQ(transcript.error.empty(), test.wellFormed) << test.text;
  }
}

TEST(XmlReader, TextLargerThanOnePiece) {
  class Counter : public XmlEvents {
   public:
    void characters(std::string_view text) override { size += text.size(); }
    size_t size = 0;
  } counter;
  EXPECT_FALSE(readXml(laughs(), counter));
  EXPECT_LT(counter.size, size_t{64} << 20);
  counter.size = 0;
  constexpr size_t kSize = 3 * (size_t{1} << 20) + 17;
  EXPECT_TRUE(readXml("<a>" + std::string(kSize, 'x') + "</a>", counter));
  EXPECT_EQ(counter.size, kSize);
}

// Some megabytes that would take gigabytes, or cannot be looked through.
TEST(XmlDocument, RefusesBeforeItIsParsedWhatTakesTooMuch) {
  std::string tags, wide;
  for (int i = 0; i < 2'000'001; ++i) tags += "<a/>";
  for (int i = 0; i < 300'000; ++i) wide += std::string(" \0", 2);
  const struct {
    std::string document, reason;
  } refused[] = {
      {"\xFF\xFE" + wide, "bytes"},
      {"<?xml version='1.0' encoding='UTF-7'?><a>" + std::string(600'000, ' ') + "</a>", "bytes"},
      {"<r>" + tags + "</r>", "tags"},
      {"<a>" + std::string(size_t{65} << 20, ' ') + "</a>", "bytes"},
  };
  for (const auto& test : refused) {
    ErrorText error;
    EXPECT_FALSE(XmlDocument::parse(test.document, &error));
    EXPECT_NE(error.text().find(test.reason), std::string::npos) << error.text();
    Transcript events;
    EXPECT_FALSE(readXml(test.document, events));
    EXPECT_EQ(events.error, error.text());
  }
  EXPECT_TRUE(parsed("<?xml version='1.0' encoding='ISO-8859-1'?><a>" + std::string(600'000, ' ') +
                     "</a>"));
}

TEST(XmlNames, Validity) {
  for (const char* good : {"a", "a.b-c", "_x", "a:b", "\xc3\xbc"}) EXPECT_TRUE(isXmlName(good));
  for (const char* bad : {"", "1a", "a b", "a<", "-a", "a\n", "\xff"}) {
    EXPECT_FALSE(isXmlName(bad)) << bad;
  }
}

}  // namespace
}  // namespace tovrek::test
