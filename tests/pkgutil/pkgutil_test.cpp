// pkgutil: the tools are there when the companions that stand in for them are.
#include "programs/pkgutil/Pkgutil.h"

#include "tests/support/CompanionTest.h"
#include "tests/support/called_program.h"
#include "tests/support/matchers.h"

namespace tovrek::test {
namespace {

using Words = std::vector<std::string>;

using Pkgutil = CompanionTest;

TEST_F(Pkgutil, LooksForTheTools) {
  for (const char* name : {"codesign", "otool"}) script(name, "");
  const std::string id = "com.apple.pkg.CLTools_Executables";
  const auto ask = [](const Words& words) { return called(pkgutil::run, words); };
  EXPECT_EQ(ask({"--pkg-info=" + id}).status, 1);
  EXPECT_EQ(ask({"--pkg-info=" + id}).errorOutput, "No receipt for '" + id + "' found at '/'.\n");
  script("nm", "");
  for (const std::string& package : {id, std::string("com.apple.pkg.DeveloperToolsCLI")}) {
    EXPECT_EQ(ask({"--pkg-info=" + package}).status, 0);
    EXPECT_THAT(ask({"--pkg-info", package}).output,
                ContainsRegex("^package-id: " + package +
                              "\nversion: [0-9.]+\nvolume: /\nlocation: /\ninstall-time: "
                              "[0-9]{9,}\n$"));
  }
  EXPECT_EQ(ask({"--pkg-info=com.example.other"}).output, "");
  EXPECT_EQ(ask({"--pkg-info=com.example.other"}).status, 1);
  const std::string usage = "Usage: pkgutil";
  expectAnswers(pkgutil::run,
                {{{}, 1, "", usage},
                 {{"--nonsense"}, 1, "", usage},
                 {{"--pkg-info"}, 1, "", usage},
                 {{"--pkg-info", id, "more"}, 1, "", usage},
                 {{"--help", "more"}, 1, "", usage},
                 {{"--help"}, 0, usage, ""},
                 {{"--volume", "/", "--pkg-info", id}, 0, "package-id: " + id + "\n", ""},
                 {{"--pkgs"}, 0, id + "\ncom.apple.pkg.DeveloperToolsCLI\n", ""},
                 {{"--pkgs=.*(CLTools|none).*"}, 0, id + "\n", ""},
                 {{"--pkgs=CLTools"}, 1, "", ""},
                 {{"--pkgs=("}, 1, "", "'(' is no regular expression\n"},
                 {{"--pkg-info-plist", id}, 0, "<?xml ", ""}});
  const std::string plist = folder_.write("info.plist", ask({"--pkg-info-plist", id}).output);
  Outcome lint;
  ASSERT_TRUE(runProcess(shellCommand("xmllint --noout '" + plist + "' 2>&1"), &lint));
  EXPECT_EQ(lint.status, 0) << lint.output;
}

}  // namespace
}  // namespace tovrek::test
