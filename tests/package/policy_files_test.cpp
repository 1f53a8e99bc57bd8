// The policy defaults file, and the check of policy files.
#include <gtest/gtest.h>

#include "formats/XmlDocument.h"
#include "package/WEXPolicyMetadata.h"
#include "package/XMParserHelper.h"
#include "tests/package/package_testing.h"

namespace tovrek::test {
namespace {

std::string policy(const std::string& name, const std::string& value) {
  return "<Policy><PolicyName>" + name + "</PolicyName><PolicyDefault>" + value +
         "</PolicyDefault></Policy>";
}

// The defaults file as "name=text;..." lines.
std::string defaultsIn(const std::string& path) {
  const auto document = XmlDocument::parse(contentsOf(path));
  if (!document || document->root().name() != "PolicyMetadata") return "unreadable";
  const auto parts = document->root().children();
  if (parts.size() != 1 || parts[0].name() != "Policies") return "wrong shape";
  std::string result;
  for (const XmlNode& entry : parts[0].children()) {
    result += entry.name() + "=" + entry.text() + ";";
  }
  return result;
}

TEST(PolicyMetadata, DefaultsFromDefinitions) {
  const struct {
    const char* what;
    std::string definition;  // without the root
    bool parsed;
    size_t policies;
    std::string defaults;
    bool generated;
  } cases[] = {
      {"in file order, names twice, other elements ignored",
       "<Category>" + policy("B", "true") + "<Policy x='1'><Title>t</Title>" +
           "<PolicyDefault>1 &amp; "
           "2</PolicyDefault><PolicyName>A</PolicyName></Policy></Category>" +
           policy("B", "<![CDATA[<no>]]>"),
       true, 3, "B=true;A=1 & 2;B=<no>;", true},
      {"no default, empty default, no name",
       "<Policy><PolicyName>N</PolicyName></Policy>" + policy("E", "") +
           "<Policy><PolicyDefault>lost</PolicyDefault></Policy><Policy/>",
       true, 4, "N=;E=;", true},
      {"white space is kept; the end of any element drops the text",
       policy("A", " x\n") + policy("B", "lost<i>in</i>kept?"), true, 2, "A= x\n;B=;", true},
      {"case matters", "<policy><PolicyName>A</PolicyName></policy>", false, 0, "", false},
      {"nothing", "", false, 0, "", false},
      {"collected before the fault", policy("A", "1") + "<Policy></Polic>", false, 1, "A=1;", true},
      {"a name that is no element name",
       policy("two words", "1") + policy("&lt;x&gt;", "2") + policy("Good", "3"), true, 3,
       "Good=3;", true},
      {"only such names", policy("1st", "1"), true, 1, "", false},
  };
  TemporaryFolder folder;
  LogCapture log;
  for (const auto& test : cases) {
    SCOPED_TRACE(test.what);
    WEXPolicyMetadata metadata(log.logger());
    EXPECT_TRUE(metadata.success());
    const std::string definition = "<PolicyMetadata>" + test.definition + "</PolicyMetadata>";
    EXPECT_EQ(metadata.startParsingXMLFile(folder.write("in.xml", definition)), test.parsed);
    EXPECT_EQ(metadata.marrXMLData().size(), test.policies);
    EXPECT_EQ(metadata.generateDefaultWexPolicesXMLAtFilePath(folder.file("out.xml")),
              test.generated);
    EXPECT_EQ(defaultsIn(folder.file("out.xml")), test.defaults);
  }
  EXPECT_TRUE(log.holds("Policy name two words cannot be an XML element"));
}

TEST(PolicyMetadata, OtherRootAndMissingFileFailForGood) {
  TemporaryFolder folder;
  LogCapture log;
  WEXPolicyMetadata metadata(log.logger());
  EXPECT_FALSE(metadata.startParsingXMLFile(folder.file("missing.xml")));
  const std::string good =
      folder.write("good.xml", "<PolicyMetadata>" + policy("A", "1") + "</PolicyMetadata>");
  EXPECT_FALSE(metadata.startParsingXMLFile(good));
  EXPECT_EQ(metadata.marrXMLData().size(), 1u);
  ASSERT_TRUE(metadata.generateDefaultWexPolicesXMLAtFilePath(folder.file("out.xml")));
  EXPECT_EQ(contentsOf(folder.file("out.xml")),
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<PolicyMetadata>\n    <Policies>\n"
            "        <A>1</A>\n    </Policies>\n</PolicyMetadata>\n");
  WEXPolicyMetadata other(log.logger());
  EXPECT_FALSE(other.startParsingXMLFile(
      folder.write("other.xml", "<Policies>" + policy("A", "1") + "</Policies>")));
}

TEST(PolicyMetadata, WellFormednessCheck) {
  LogCapture log;
  XMParserHelper good(log.logger());
  EXPECT_TRUE(good.initXMLParser("<?xml version='1.0'?><a><b/></a>"));
  EXPECT_FALSE(good.parserError());
  EXPECT_EQ(log.text(), "");
  XMParserHelper bad(log.logger());
  EXPECT_FALSE(bad.initXMLParser("<a>\n<b></a>"));
  ASSERT_TRUE(bad.parserError());
  EXPECT_EQ(bad.parserError()->find("line 2: "), 0u) << *bad.parserError();
  EXPECT_TRUE(log.holds(*bad.parserError()));
}

}  // namespace
}  // namespace tovrek::test
