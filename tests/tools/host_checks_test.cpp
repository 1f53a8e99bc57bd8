#include "tools/host_checks.h"

#include <gtest/gtest.h>

#include "tests/support/ScriptedHostRoot.h"
#include "tests/support/matchers.h"

namespace tovrek {
namespace {

class HostChecks : public ::testing::Test {
 protected:
  void setVersion(const std::string& version) const {
    host_.addFile("/System/Library/CoreServices/SystemVersion.plist",
                  "<plist version=\"1.0\"><dict><key>ProductVersion</key><string>" + version +
                      "</string></dict></plist>");
  }
  test::ScriptedHostRoot host_;
};

TEST_F(HostChecks, ComparesVersionsByNumber) {
  struct Case {
    const char* version;
    bool mavericks, catalina;
  };
  for (const Case& c :
       {Case{"10.8.5", false, false}, Case{"10.9", true, false}, Case{"10.9.0", true, false},
        Case{"10.10", true, false}, Case{"10.15.7", true, true}, Case{"11", true, true},
        Case{"9.20", false, false}, Case{"", false, false}}) {
    setVersion(c.version);
    EXPECT_EQ(verifyIfOSVerisonIsMavericksandAbove(), c.mavericks) << c.version;
    EXPECT_EQ(verifyIfOSVerisonIsCatalinaOrAbove(), c.catalina) << c.version;
  }
  host_.addFile("/System/Library/CoreServices/SystemVersion.plist", "no property list");
  EXPECT_FALSE(verifyIfOSVerisonIsMavericksandAbove());
}

TEST_F(HostChecks, AsksForToolsAsTheVersionNeeds) {
  host_.addTool("pkgutil", "echo unknown; exit 1");
  std::vector<bool> told;
  const auto note = [&](bool installed, bool mayInstall) { told = {installed, mayInstall}; };

  setVersion("10.9");
  EXPECT_TRUE(verifyCommandLineToolisInstalled(note)) << "any output will do";
  EXPECT_THAT(told, ElementsAre(true, true));
  setVersion("10.8");
  host_.addTool("pkgutil", "exit 1");
  EXPECT_FALSE(verifyCommandLineToolisInstalled(note));
  EXPECT_THAT(told, ElementsAre(false, false));
  EXPECT_THAT(host_.allCalls(), ElementsAre("pkgutil|--pkg-info=com.apple.pkg.CLTools_Executables",
                                            "pkgutil|--pkg-info=com.apple.pkg.DeveloperToolsCLI"));

  setVersion("10.15");
  host_.addTool("otool");
  host_.addTool("nm");
  ::testing::internal::CaptureStderr();
  EXPECT_FALSE(verifyCommandLineToolisInstalled(note));
  EXPECT_THAT(::testing::internal::GetCapturedStderr(),
              ::testing::EndsWith(" Command Line tool /usr/bin/codesign: not present\n"));
  EXPECT_THAT(told, ElementsAre(false, true));
  host_.addTool("codesign");
  EXPECT_TRUE(verifyCommandLineToolisInstalled(nullptr));
}

TEST_F(HostChecks, StartsTheInstallation) {
  host_.addTool("xcode-select", "echo requested; exit 1");
  ::testing::internal::CaptureStderr();
  EXPECT_TRUE(installCommandLineTools());
  EXPECT_THAT(::testing::internal::GetCapturedStderr(),
              ::testing::HasSubstr(" outputStr requested\n"));
  EXPECT_THAT(host_.allCalls(), ElementsAre("xcode-select|--install"));
}

TEST_F(HostChecks, CommandLineToolsByReceiptOrByQuestion) {
  setVersion("10.11");
  host_.addTool("pkgutil", "exit 1");
  EXPECT_FALSE(isCmdLineToolInstalled());
  host_.addTool("pkgutil", "exit 0");
  EXPECT_TRUE(isCmdLineToolInstalled());
  host_.addTool("pkgutil", "exit 1");
  host_.addFile("/var/db/receipts/com.apple.pkg.CLTools_Executables.bom", "");
  EXPECT_TRUE(isCmdLineToolInstalled());
}

}  // namespace
}  // namespace tovrek
