// What reports are made of; whole inspections are judged by cli.inspect.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include "inspect/Finding.h"
#include "inspect/JsonWriter.h"
#include "inspect/explanation.h"
#include "inspect/text.h"
#include "tests/support/TemporaryFolder.h"

namespace tovrek::inspect {
namespace {

TEST(InspectText, NothingOfTheInputGivesOrders) {
  const struct {
    std::string_view input, terminal, html, json;
  } cases[] = {
      {"plain é", "plain é", "plain é", "plain é"},
      {"\x1b[2J", "\\x1b[2J", "\\x1b[2J", "\\u001b[2J"},
      {"a\nb", "a\\x0ab", "a\\x0ab", "a\\u000ab"},
      {"<b a='\"'>&", "<b a='\"'>&", "&lt;b a=&#39;&quot;&#39;&gt;&amp;", "<b a='\\\"'>&"},
      {"\xe2\x80\xae.exe", "\\u{202e}.exe", "\\u{202e}.exe", "\\u202e.exe"},
      {"cut \xc3", "cut \\xc3", "cut \\xc3", "cut \\ufffd"},
      {"back\\slash", "back\\slash", "back\\slash", "back\\\\slash"},
  };
  for (const auto& each : cases) {
    EXPECT_EQ(forTerminal(each.input), each.terminal);
    EXPECT_EQ(forHtml(each.input), each.html);
    EXPECT_EQ(forJson(each.input), each.json);
  }
}

TEST(InspectText, SizesAndDates) {
  for (const auto& [bytes, expected] :
       {std::pair<uint64_t, const char*>{0, "0 bytes"}, {12300000, "12.3 MB"}}) {
    EXPECT_EQ(sizeText(bytes), expected);
  }
  EXPECT_EQ(dateText(1772323200), "2026-03-01");
  EXPECT_EQ(dateText(0), "");
}

TEST(JsonWriter, NestsAndParts) {
  JsonWriter writer;
  writer.beginObject()
      .text("a\"", "b\n")
      .beginArray("list")
      .number("", 1)
      .flag("", false)
      .endArray();
  writer.beginArray("none").endArray().null("nothing").endObject();
  const std::string text = writer.take();
  std::string packed;
  for (const char c : text) {
    if (c != ' ' && c != '\n') packed += c;
  }
  EXPECT_EQ(packed, R"({"a\"":"b\u000a","list":[1,false],"none":[],"nothing":null})");
}

TEST(Findings, KindsAreSortedAndSayWhatToDo) {
  std::string_view last;
  const std::string page = test::contentsOf(TOVREK_SOURCE_DIR "/docs/inspect.md");
  for (const FindingKind& kind : findingKinds()) {
    EXPECT_LT(last, std::string_view(kind.code)) << "people look them up in this order";
    EXPECT_NE(std::string_view(kind.meaning), "") << kind.code;
    EXPECT_NE(std::string_view(kind.remedy), "") << kind.code;
    EXPECT_NE(explanationOf(kind.code).find(kind.remedy), std::string::npos) << kind.code;
    EXPECT_NE(page.find(fmt::format("`{}`", kind.code)), std::string::npos) << kind.code;
    last = kind.code;
  }
}

TEST(Findings, WorstComeFirstAndOnce) {
  const std::string note = "profile-devices";
  ASSERT_EQ(findingKind(note)->severity, Severity::kNote);
  Findings findings = {makeFinding(note, "b", "same"), makeFinding("signature-invalid", "z", "x"),
                       makeFinding(note, "a", "same"), makeFinding(note, "b", "same")};
  sortFindings(&findings);
  ASSERT_EQ(findings.size(), 3U);
  EXPECT_EQ(findings[0].code, "signature-invalid");
  EXPECT_EQ(findings[1].place, "a");
  const FindingCounts counts = countOf(findings);
  EXPECT_EQ(counts.errors, 1U);
  EXPECT_EQ(counts.notes, 2U);
}

}  // namespace
}  // namespace tovrek::inspect
