#include "tests/converter/FlowTest.h"
#include "tests/support/matchers.h"

namespace tovrek::test {
namespace {

using ResignFlow = FlowTest;

TEST_F(ResignFlow, SignsAnIpaAnew) {
  inApp("_CodeSignature/CodeResources", "old");
  inApp("PlugIns/A.appex/A", "");
  inApp("Watch/W.app/W", "");
  inApp("Frameworks/F.dylib", "");
  request.replacementBundleID = "com.example.new";
  write("out.ipa", "old");
  ASSERT_TRUE(create()) << error.text();
  EXPECT_THAT(progress.stages, ElementsAre("Unzipping...", "Replacing bundle identifier...",
                                           "Copying resource files...", "Code signing...",
                                           "Generating ipa file..."));
  EXPECT_EQ(inOutput("Payload/Demo.app/embedded.mobileprovision"), "signed profile");
  EXPECT_EQ(inOutput("Payload/Demo.app/ResourceRules.plist"), "rules");
  EXPECT_EQ(inOutput("Payload/Demo.app/_CodeSignature/CodeResources"), "");
  const auto info = parsePlist(inOutput("Payload/Demo.app/Info.plist"));
  ASSERT_TRUE(info && info->dictionary());
  EXPECT_EQ(*stringForKey(*info->dictionary(), "CFBundleIdentifier"), "com.example.new");
  EXPECT_EQ(*stringForKey(*info->dictionary(), "WEXCFBundleIdentifier"), "com.example.demo");
  // Extensions are gone; frameworks keep their signature.
  Outcome names;
  runProcess({.argv = {"/usr/bin/unzip", "-Z1", *request.outputFile}}, &names);
  EXPECT_EQ(names.output.find("appex"), std::string::npos);
  EXPECT_EQ(names.output.find("Watch"), std::string::npos);
  const auto calls = host.allCalls(scratch);
  EXPECT_EQ(calls.back(),
            "codesign|-f|-s|ID|@/Payload/Demo.app|--entitlements|@/new-entitlement.plist|"
            "--preserve-metadata=requirements");
  EXPECT_FALSE(fileExists(scratch));
}

TEST_F(ResignFlow, UnpackingLeavesItsTextInTheSlot) {
  EXPECT_TRUE(create());
  EXPECT_EQ(error.text(), "Invalid input");
}

TEST_F(ResignFlow, RefusalsBeforeAnyChange) {
  const struct {
    const char* name;
    std::function<void()> prepare;
    std::string text;
  } cases[] = {
      {"linked with the SDK", [&] { host.addTool("otool", "echo WEX.framework cryptid 0"); },
       "ERROR: This app is already linked against the TelvoSDK, and cannot be wrapped."},
      {"wrapped", [&] { host.addTool("otool", "echo OrvaneDylib.dylib cryptid 0"); },
       "ERROR: This app is already wrapped, and cannot be re-wrapped."},
      {"encrypted", [&] { host.addTool("otool", "echo cryptid 1"); }, "is an AppStore app."},
      {"expired profile",
       [&] {
         host.addTool("otool", "echo cryptid 0");
         profileExpires(1e9);
       },
       "This provisioning profile has expired. Please use a valid provisioning profile."},
      {"undecoded profile", [&] { host.addTool("security", "exit 1"); },
       "Failed to execute security with exit code: 1"},
      {"decoded to nothing", [&] { host.addTool("security"); }, "Invalid input"},
      {"Adobe AIR", [&] { inApp("META-INF/AIR/application.xml", ""); },
       "WEX does not support wrapping applications created using the Adobe Air framework."},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    c.prepare();
    EXPECT_FALSE(create());
    EXPECT_THAT(error.text(), HasSubstr(c.text));
    EXPECT_FALSE(fileExists(*request.outputFile));
    for (const std::string& call : host.allCalls())
      EXPECT_THAT(call, ::testing::Not(HasSubstr("-f|-s")));
  }
}

TEST_F(ResignFlow, LinksOutOfTheArchiveAreRefused) {
  write("outside/Info.plist", "untouched");
  write("outside/Frameworks/A.dylib", "untouched");
  const std::string outside = folder.file("outside");
  for (const std::string name : {"Frameworks", "OrvaneDylib.bundle", "_CodeSignature", "PlugIns"}) {
    SCOPED_TRACE(name);
    link(outside, "Payload/Demo.app/" + name);
    EXPECT_FALSE(create());
    EXPECT_EQ(error.text(), "The input holds a link that is not accepted: Payload/Demo.app/" +
                                name + " (it stands in place of a file or folder of the app)");
    removeItem(folder.file("Payload/Demo.app/" + name));
    removeItem(*request.inputFile);
  }
  EXPECT_EQ(contentsOf(outside + "/Info.plist"), "untouched");
  EXPECT_EQ(contentsOf(outside + "/Frameworks/A.dylib"), "untouched");
  EXPECT_EQ(listDirectory(outside)->size(), 2U);
}

TEST_F(ResignFlow, ArchiveBringsNothingIntoThePackage) {
  write("ORVANE_PACKAGE/planted.txt", "");
  write("outside", "untouched");
  EXPECT_TRUE(create({"Payload", "ORVANE_PACKAGE"})) << error.text();
  removeItem(*request.inputFile);
  link(folder.file("outside"), "ORVANE_PACKAGE/Demo.ipa");
  EXPECT_FALSE(create({"Payload", "ORVANE_PACKAGE"}));
  EXPECT_EQ(error.text(),
            "The input holds a link that is not accepted: ORVANE_PACKAGE/Demo.ipa (it lies beside "
            "the app)");
  EXPECT_EQ(contentsOf(folder.file("outside")), "untouched");
}

TEST_F(ResignFlow, FailuresOfTheLastSteps) {
  host.addTool("codesign", "case $1 in -f) exit 5;; esac");
  EXPECT_FALSE(create());
  EXPECT_EQ(error.text(),
            "Failed to execute codesign:withEntitlement:withError: -  with exit code: 5");
  host.addTool("codesign");
  request.outputFile = folder.file("nowhere/out.ipa");
  EXPECT_FALSE(create());
  EXPECT_THAT(error.text(), HasSubstr("/ORVANE_PACKAGE/Demo.ipa to " + *request.outputFile));
}

TEST_F(ResignFlow, UnpackingForTheFrontEnd) {
  ASSERT_TRUE(create()) << error.text();  // makes the archive
  UnpackedInput input;
  const auto unpack = [&] {
    input = {};
    return AppConverter::unzipIpaAndProcessConverterParameters(request, context, &input, &error);
  };
  host.addTool("otool", "echo WEX.framework");
  EXPECT_FALSE(unpack());
  EXPECT_THAT(error.text(), HasSubstr("Wrapping an SDK app with this tool is not supported."));

  host.addTool("otool", "echo cryptid 0");
  EXPECT_TRUE(unpack());
  ASSERT_TRUE(input.directory && input.ipa);
  EXPECT_EQ(input.ipa->appPath(), input.directory->tempDir() + "/Payload/Demo.app");

  request.inputFile = folder.file("Demo.zip");
  EXPECT_FALSE(unpack());
  EXPECT_EQ(error.text(), "Unknown input file.");
  request.inputFile.reset();
  EXPECT_FALSE(unpack());
  EXPECT_EQ(error.text(), "Invalid input");
}

}  // namespace
}  // namespace tovrek::test
