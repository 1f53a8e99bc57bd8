#include <gtest/gtest.h>
#include <regex.h>

#include <string>
#include <vector>

#include "formats/PathPattern.h"

namespace tovrek {
namespace {

// What the C library says to the same pattern; it is what rules were always read by.
bool isFoundByLibrary(const std::string& pattern, const std::string& path) {
  regex_t expression{};
  EXPECT_EQ(::regcomp(&expression, pattern.c_str(), REG_EXTENDED | REG_NOSUB), 0) << pattern;
  const bool found = ::regexec(&expression, path.c_str(), 0, nullptr, 0) == 0;
  ::regfree(&expression);
  return found;
}

TEST(PathPattern, UsualRulesMeanWhatTheyMeantToTheSystem) {
  const std::vector<std::string> patterns = {
      "^.*",
      "^version.plist$",
      "^.*\\.lproj/",
      "^Base\\.lproj/",
      "^.*\\.lproj/locversion.plist$",
      ".*\\.dSYM($|/)",
      "^(.*/)?\\.DS_Store$",
      "^Info\\.plist$",
      "^PkgInfo$",
      "^embedded\\.provisionprofile$",
      "^Resources/",
      "^Resources/.*\\.lproj/",
      "^[^/]+$",
      "^(Frameworks|SharedFrameworks|PlugIns|Plug-ins|XPCServices|Helpers|MacOS|"
      "Library/(Automator|Spotlight|LoginItems))/",
      "",
      "a||b",
      "()",
      "[[:upper:]][[:digit:]]+",
      "[]x]",
      "a{2,3}b",
      "x**",
      "(a|ab)(c|bcd)$",
      "^\xc3\xa4",
      "[\xc3\xa4]",
      "\\.(png|jpg)$"};
  const std::vector<std::string> paths = {"",
                                          "version.plist",
                                          "versionXplist",
                                          "d/version.plist",
                                          "de.lproj/x",
                                          "Base.lproj/",
                                          "a.lproj",
                                          "x/de.lproj/locversion.plist",
                                          "App.dSYM",
                                          "App.dSYM/x",
                                          "App.dSYMx",
                                          ".DS_Store",
                                          "a/.DS_Store",
                                          "a.DS_Store",
                                          "Info.plist",
                                          "InfoXplist",
                                          "PkgInfo\n",
                                          "line\nPkgInfo",
                                          "Frameworks/F.framework",
                                          "Library/Spotlight/x",
                                          "Library/x",
                                          "Resources/de.lproj/y",
                                          "A1",
                                          "x]",
                                          "aaab",
                                          "ab",
                                          "abcd",
                                          "\xc3\xa4.png",
                                          "\xc3.jpg",
                                          "\xff\xfe",
                                          "a.png\n"};
  for (const std::string& pattern : patterns) {
    PatternBudget budget;
    const auto compiled = PathPattern::compile(pattern, &budget);
    ASSERT_TRUE(compiled) << pattern;
    for (const std::string& path : paths) {
      EXPECT_EQ(compiled->isIn(path), isFoundByLibrary(pattern, path)) << pattern << " in " << path;
    }
  }
}

TEST(PathPattern, RefusesWhatIsNoneOrTakesTooMuch) {
  for (const std::string& pattern :
       {std::string("("), std::string("[a"), std::string(R"((.*)\1)"),
        std::string("((a{1,200}){1,200}){1,200}"), std::string(4097, 'a')}) {
    PatternBudget budget;
    EXPECT_FALSE(PathPattern::compile(pattern, &budget)) << pattern.substr(0, 40);
  }
  PatternBudget budget;
  size_t accepted = 0;
  while (accepted < 100 && PathPattern::compile(std::string(500, 'a'), &budget)) ++accepted;
  EXPECT_GT(accepted, 5U);
  EXPECT_LT(accepted, 100U) << "the budget is one for all of them";
}

}  // namespace
}  // namespace tovrek
