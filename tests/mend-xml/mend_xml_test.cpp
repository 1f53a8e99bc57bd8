// mend-xml: what it makes of damaged documents, what it must not get over, and who runs it.
#include <gtest/gtest.h>

#include "formats/XmlDocument.h"
#include "programs/mend-xml/MendXml.h"
#include "programs/mend-xml/recovery.h"
#include "tests/support/ScriptedHostRoot.h"
#include "tests/support/called_program.h"
#include "tests/support/hostile_xml.h"

namespace tovrek::test {
namespace {

struct Case {
  std::string given, expected;  // the document, or a part of the reason
};

TEST(MendXml, MakesWhatCanBeMade) {
  for (const Case& test : std::initializer_list<Case>{
           {"<a><b>text</b><c>&nope; 1 < 2", "<a><b>text</b><c> 1  2</c></a>"},
           {"<a><b></a>", "<a><b/></a>"},
           {"<!DOCTYPE a [<!ENTITY x 'v'>]><a>&x;<b>", "<a>v<b/></a>"},
           {"<?xml version='1.1' encoding='ISO-8859-1'?><a>\xfc<b>", "<a>\xc3\xbc<b/></a>"},
           {"<a/>after", "<a/>"},
       }) {
    ErrorText error;
    const auto made = mend_xml::recoveredXml(test.given, &error);
    ASSERT_TRUE(made) << test.given << error.text();
    EXPECT_NE(made->find("encoding=\"UTF-8\"?>\n" + test.expected + "\n"), std::string::npos)
        << *made;
    EXPECT_TRUE(XmlDocument::parse(*made)) << *made;
  }
}

TEST(MendXml, DoesNotGetOverWhatIsHostile) {
  for (const Case& test : std::initializer_list<Case>{
           {"", "empty"},
           {"junk", "Start tag expected"},
           {nested(300), "Excessive depth"},
           {laughs(), "loop"},
           {"<!DOCTYPE a [<!ENTITY x SYSTEM '/etc/passwd'>]><a>&x;", "outside"},
           {"<!DOCTYPE a SYSTEM '/etc/passwd'><a>", "outside"},
           {attributes(1001), "too many attributes"},
       }) {
    ErrorText error;
    EXPECT_FALSE(mend_xml::recoveredXml(test.given, &error)) << test.given;
    EXPECT_NE(error.text().find(test.expected), std::string::npos) << error.text();
  }
  expectAnswers(mend_xml::run, {{{"file.xml"}, 2, "", "usage: mend-xml "}});
}

// A damaged file is read as far as it makes sense, and the reason is kept.
TEST(MendXml, IsRunForFiles) {
  TemporaryFolder folder;
  const std::string damaged = folder.write("x", "<a><b>text</b>\n<c>&nope; 1 < 2");
  {
    const ScopedEnvironment hostRoot("TOVREK_HOST_ROOT", TOVREK_BUILT_FOLDER "/host");
    ErrorText error;
    const auto mended = XmlDocument::readFile(damaged, &error);
    ASSERT_TRUE(mended) << error.text();
    EXPECT_EQ(mended->root().child("b")->text(), "text");
    EXPECT_EQ(error.text(), "line 2: undefined entity");
    EXPECT_FALSE(XmlDocument::readFile(folder.write("y", "junk"), &error));
    EXPECT_EQ(error.text(), "line 1: syntax error");
    EXPECT_FALSE(XmlDocument::readFile(folder.write("deep", nested(300))));
  }
  ScriptedHostRoot without;
  ErrorText error;
  EXPECT_FALSE(XmlDocument::readFile(damaged, &error));
  EXPECT_NE(error.text().find("(mend-xml: "), std::string::npos) << error.text();
  without.addTool("mend-xml", "printf '<no'");
  EXPECT_FALSE(XmlDocument::readFile(damaged));
}

}  // namespace
}  // namespace tovrek::test
