#include <gtest/gtest.h>
#include <unistd.h>

#include "context/PellRequest.h"
#include "host/files.h"
#include "tests/support/ScriptedHostRoot.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/matchers.h"
#include "tools/PellKeychainHelper.h"
#include "tools/XcrunHelper.h"
#include "tools/splitting.h"
#include "tools/tool_run.h"

namespace tovrek {
namespace {

const WrapperLogger log("ToolkitLib", std::nullopt);

TEST(ToolRun, JudgesTheStatus) {
  struct Case {
    std::vector<std::string> argv;
    std::string error;
  };
  for (const Case& c : {
           Case{{"/bin/sh", "-c", "exit 0"}, ""},
           Case{{"/bin/sh", "-c", "exit 3"}, "Failed to execute tag with exit code: 3"},
           Case{{"/bin/sh", "-c", "kill -9 $$"}, "Failed to execute tag with exit code: 9"},
           Case{{"/nowhere/tool"}, "Failed to execute tag with exit code: 127"},
       }) {
    ErrorText error;
    EXPECT_EQ(runToolOrFail(log, c.argv, "tag", &error), c.error.empty()) << c.argv.back();
    EXPECT_EQ(error.text(), c.error);
  }
}

TEST(ToolRun, RunsInTheFolderAndThroughTheShell) {
  const test::TemporaryFolder folder;
  EXPECT_EQ(
      runTool(log, {"/bin/sh", "-c", "test \"$(pwd -P)\" = \"$0\"", folder.path()}, folder.path()),
      0);
  const std::optional<Outcome> outcome = runShell(log, "echo one | sed s/one/two/; exit 4");
  ASSERT_TRUE(outcome);
  EXPECT_EQ(outcome->output, "two\n");
  EXPECT_EQ(outcome->status, 4);
}

TEST(Splitting, KeepsEmptyPieces) {
  EXPECT_THAT(splitAt("a//b/", '/'), ElementsAre("a", "", "b", ""));
  EXPECT_THAT(splitAt("", '/'), ElementsAre(""));
}

class Packager : public ::testing::Test {
 protected:
  XcrunHelper helper() const {
    XcrunHelper helper;
    helper.appBundlePath = "/w/A.app";
    helper.outPackagePath = output_;
    helper.codeSignCert = "Some Identity";
    helper.embeddedProfilePath = "/w/p.mobileprovision";
    return helper;
  }

  test::TemporaryFolder folder_;
  test::ScriptedHostRoot host_;
  std::string output_ = folder_.file("A.ipa");
  // Makes the file that follows "-o".
  const std::string writeOutput_ = "shift 4; echo packed > \"$2\"; ";
};

TEST_F(Packager, SucceedsByTheFileWhateverTheStatus) {
  host_.addTool("xcrun", writeOutput_ + "echo complaint; exit 1");
  ErrorText error;
  ::testing::internal::CaptureStderr();
  EXPECT_TRUE(helper().StartXCRun(log, &error));
  EXPECT_THAT(::testing::internal::GetCapturedStderr(),
              HasSubstr("xcrun returns code 1. output: complaint\n"));
  EXPECT_FALSE(error.isSet());
  EXPECT_THAT(host_.allCalls(folder_.path()),
              ElementsAre("xcrun|-sdk|iphoneos|PackageApplication|/w/A.app|-o|@/A.ipa|--sign|"
                          "Some Identity|--embed|/w/p.mobileprovision|--verbose"));
}

TEST_F(Packager, LeavesOutAllFromTheFirstMissingValueOn) {
  host_.addTool("xcrun", writeOutput_);
  XcrunHelper unsignedApp = helper();
  unsignedApp.codeSignCert.reset();
  EXPECT_TRUE(unsignedApp.StartXCRun(log, nullptr));
  EXPECT_THAT(host_.allCalls(folder_.path()),
              ElementsAre("xcrun|-sdk|iphoneos|PackageApplication|/w/A.app|-o|@/A.ipa|--sign"));
}

TEST_F(Packager, FailsWithoutAPlainFile) {
  const std::string expected = "Failed to generate this file: " + output_;
  host_.addTool("xcrun");
  ErrorText error;
  EXPECT_FALSE(helper().StartXCRun(log, &error));
  EXPECT_EQ(error.text(), expected);

  // What stood there before is no result of a run that failed.
  folder_.write("A.ipa", "older");
  host_.addTool("xcrun", "exit 1");
  error.clear();
  EXPECT_FALSE(helper().StartXCRun(log, &error));
  EXPECT_EQ(error.text(), expected);
  ASSERT_TRUE(removeItem(output_));

  folder_.write("A.ipa/inside", "");
  error.clear();
  EXPECT_FALSE(helper().StartXCRun(log, &error));
  EXPECT_EQ(error.text(), expected);
}

TEST_F(Packager, TellsThatItCouldNotBeStarted) {
  host_.addFile("/usr/bin/xcrun", "not executable");
  ErrorText error;
  EXPECT_FALSE(helper().StartXCRun(log, &error));
  EXPECT_EQ(error.text(), "Catch an exception! Exception description: Permission denied");
}

TEST_F(Packager, ResolvesPaths) {
  folder_.write("real/x", "");
  ASSERT_EQ(::symlink("real", folder_.file("link").c_str()), 0);
  EXPECT_TRUE(XcrunHelper::pathResolved(folder_.file("link/x"))->ends_with("/real/x"));
  EXPECT_FALSE(XcrunHelper::pathResolved(folder_.file("none")));
}

TEST(PellKeychain, ListsKeychainsOnlyWhenAskedFor) {
  test::ScriptedHostRoot host;
  host.addTool("security", "echo '    \"/k/login.keychain\"'");
  PellRequest request;
  PellKeychainHelper::displayKeychain(request);
  EXPECT_THAT(host.allCalls(), IsEmpty());

  request.setPellRequestFlag(true);
  ::testing::internal::CaptureStderr();
  PellKeychainHelper::displayKeychain(request);
  EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("\"/k/login.keychain\""));
  EXPECT_THAT(host.allCalls(), ElementsAre("security|list-keychains"));
}

}  // namespace
}  // namespace tovrek
