// xcode-select: what is missing on this host, and options of which nothing depends.

#include "programs/xcode-select/XcodeSelect.h"
#include "tests/support/CompanionTest.h"
#include "tests/support/called_program.h"
#include "tests/support/matchers.h"

namespace tovrek::test {
namespace {

using XcodeSelect = CompanionTest;

TEST_F(XcodeSelect, AnswersAndRefusals) {
  // What is missing depends on the host; the two answers are told apart by the status.
  const Outcome install = called(xcode_select::run, {"--install"});
  EXPECT_THAT(install.output,
              install.status == 0 ? HasSubstr("are installed\n") : HasSubstr("sudo apt install "));
  expectRun({"xcode-select", "-p"}, 0, hostRoot() + "\n");
  EXPECT_THAT(called(xcode_select::run, {"-v"}).output, StartsWith("xcode-select version "));
  expectAnswers(
      xcode_select::run,
      {{{}, 1, "", "xcode-select: error: no command option given\nUsage: "},
       {{"--nonsense"}, 1, "", "xcode-select: error: invalid argument '--nonsense'\nUsage: "},
       {{"-p", "more"}, 1, "", "xcode-select: error: invalid argument 'more'\nUsage: "},
       {{"-s"}, 1, "", "xcode-select: error: -s needs a folder\nUsage: "},
       {{"-s", "/Applications/Xcode.app"}, 0, "", "xcode-select: note: this host has one set"},
       {{"--reset"}, 0, "", "xcode-select: note: this host has one set"}});
}

}  // namespace
}  // namespace tovrek::test
