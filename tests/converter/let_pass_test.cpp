// What fails no run is told of, with the file and the reason.
#include <fmt/format.h>

#include <functional>

#include "converter/bundle_identifier.h"
#include "converter/code_signing.h"
#include "converter/entitlements.h"
#include "converter/policies.h"
#include "converter/steps.h"
#include "package/WexInfoPlistModifier.h"
#include "tests/converter/ConverterTest.h"
#include "tests/support/FewOpenFiles.h"
#include "tests/support/matchers.h"

namespace tovrek::test {
namespace {

class LetPass : public ConverterTest {
 protected:
  // The warnings that the action logs.
  std::string warningsOf(const std::function<void()>& action) {
    const std::string path = write("log", "");
    for (WrapperLogger* logger : {&context.loggers.toolkit, &context.loggers.manifest}) {
      logger->setLogFilename(path);
      logger->setLogFileWriteLevel(2);
    }
    action();
    return contentsOf(path);
  }
};

TEST_F(LetPass, IsWarnedOfWithFileAndReason) {
  const std::string plist = folder.file("Payload/Demo.app/Info.plist");
  const std::string old = folder.file("Demo.app/orig-entitlements.plist");
  const std::string extension = folder.file("Demo.app/PlugIns/A.appex");
  const std::string policies =
      write("policies.xml",
            "<PolicyMetadata><Policy><PolicyName>A</PolicyName></Policy></PolicyMetadata>");
  PlistDictionary profile, granted;
  granted.set("application-identifier", "TEAMAAAAAA.*");
  profile.set("Entitlements", granted);

  const struct {
    std::function<void()> action;
    std::string warning;
  } cases[] = {
      {[&] {
         write("Payload/Demo.app/Info.plist", "damaged");
         auto flow = run();
         flow.payloadDir = folder.file("Payload");
         flow.replacementBundleID = "com.example.new";
         EXPECT_TRUE(changeBundleIdentifier(flow, &error));
       },
       "The bundle identifier was not replaced in " + plist + ": "},
      {[&] {
         auto flow = run();
         flow.originalBundleID = "com.example.old";
         flow.replacementBundleID = "com.example.new";
         EXPECT_TRUE(changeBundleIdentifier(flow, &error));
       },
       "The bundle identifier was not replaced in an app that was given unpacked"},
      {[&] {
         host.addTool("codesign", "exit 1");
         write("Demo.app/PlugIns/A.appex/Info.plist", "");
         request.isSDK = true;
         EXPECT_TRUE(CodeSignExtensions(run(), app(), &error));
       },
       extension + ": Failed to execute codesign:withEntitlement:withError: -  with exit code: 1"},
      {[&] {
         write("Demo.app/Watch/a/b/c/d/e/f", "");
         auto flow = run();
         flow.appPath = app();
         const FewOpenFiles few(2);
         EXPECT_TRUE(stripOrReportExtensions(flow, &error));
       },
       "The extensions in " + app() + "/Watch were not removed: "},
      {[&] {
         write("Demo.app/orig-entitlements.plist", "damaged");
         std::string path;
         const auto flow = run();
         EXPECT_TRUE(generateNewEntitlement(flow, &path, profile, folder.path(), app(), &error))
             << error.text();
       },
       "The old entitlements in " + old + " are not kept: "},
      {[&] {
         EXPECT_TRUE(constructDefaultWexPolicesXMLFile(context.loggers.manifest, policies,
                                                       "/nowhere/defaults.xml", &error));
       },
       "The default policies were not written to /nowhere/defaults.xml: "
       "No such file or directory"},
      {[&] {
         auto info = WexInfoPlistModifier::initWithAppBundle(bundle(), context.loggers.manifest);
         ASSERT_TRUE(info);
         removeItem(app());
         info->synchronize();
       },
       "The URL schemes and settings were not added to " + app() +
           "/Info.plist: No such file or directory"},
  };
  for (const auto& c : cases) EXPECT_THAT(warningsOf(c.action), HasSubstr(c.warning));
}

// The app keeps the identifier that it was to have: nothing was let pass.
TEST_F(LetPass, IsNoMatterWhereNothingWasAsked) {
  auto flow = run();
  flow.originalBundleID = flow.replacementBundleID = "com.example.old";
  EXPECT_EQ(warningsOf([&] { EXPECT_TRUE(changeBundleIdentifier(flow, &error)); }), "");
}

}  // namespace
}  // namespace tovrek::test
