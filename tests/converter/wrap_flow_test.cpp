#include <fmt/format.h>

#include "tests/converter/FlowTest.h"
#include "tests/support/PngBuilder.h"
#include "tests/support/matchers.h"

namespace tovrek::test {
namespace {

// What a conversion that inserts the management files needs besides.
class WrapFlow : public FlowTest {
 protected:
  WrapFlow() {
    request.isResign = false;
    request.outputFile = folder.file("out.wex");
    PlistDictionary info = readPlistDictionary(folder.file("Payload/Demo.app/Info.plist")).value();
    info.set("CFBundleIconFile", "Icon.png");
    inApp("Info.plist", serializePlist(info, PlistFormat::kXml));
    inApp("Icon.png", pngFile(noisePicture(4, 4, 4)));
    for (const char* bundle : {"Orvane", "OrvaneDylib", "OrvaneNetworkOnlyDylib"}) {
      write(fmt::format("Data/{}.bundle/OrvaneDylib.dylib", bundle), bundle);
      write(fmt::format("Data/{}.bundle/WexAssets.bundle/AppLoaderViewController.nib", bundle), "");
    }
    write("Data/WEXSDK/OrvaneLogger.framework/OrvaneLogger", "logger");
    write("Data/strings-de.xml", "de");
    write("Data/policy_metadata.xml",
          "<PolicyMetadata><Policy><PolicyName>P</PolicyName></Policy></PolicyMetadata>");
    host.addTool("codesign",
                 "case $1 in -d) exit 1;; -dvvv|--display) echo 'TeamIdentifier=T' >&2; echo "
                 "'Authority=iPhone Distribution: Orvane Systems, Inc.' >&2;; esac");
  }
  std::vector<std::string> namesInOutput() {
    Outcome names;
    runProcess({.argv = {"/usr/bin/unzip", "-Z1", *request.outputFile}}, &names);
    std::istringstream lines(names.output);
    std::vector<std::string> result;
    for (std::string line; std::getline(lines, line);) result.push_back(line);
    return result;
  }
};

TEST_F(WrapFlow, SdkAppIsPreparedAndSigned) {
  request.isSDK = true;
  request.appMode = "1";
  host.addTool("otool", "echo WEX.framework cryptid 0");
  ASSERT_TRUE(create()) << error.text();
  EXPECT_THAT(progress.stages,
              ElementsAre("Unzipping...", "Validating dylib...", "Rebuilding app...",
                          "Replacing bundle identifier...", "Copying resource files...",
                          "Generating manifest xml...", "Copying icon files...", "Code signing...",
                          "Generating ipa file...", "Generating package file..."));
  EXPECT_THAT(namesInOutput(),
              ::testing::UnorderedElementsAre("Icon.png", "manifest.xml", "policy_metadata.xml",
                                              "strings-de.xml"));
  EXPECT_THAT(inOutput("manifest.xml"), HasSubstr("<BundleFile>out_SDK.ipa</BundleFile>"));
  EXPECT_THAT(inOutput("manifest.xml"), HasSubstr("<SDKAppMode CRKW=\"MamSDKAppMode\">1<"));

  request.outputFile = folder.file("out_SDK.ipa");  // beside the package
  const auto names = namesInOutput();
  EXPECT_THAT(names,
              ::testing::IsSupersetOf(
                  {"Payload/Demo.app/OrvaneDylib.bundle/OrvaneDylib.dylib",
                   "Payload/Demo.app/AppLoaderViewController.nib",
                   "Payload/Demo.app/Frameworks/OrvaneLogger.framework/OrvaneLogger",
                   "Payload/Demo.app/default_wex_policies.xml", "Payload/Demo.app/Orvane.plist"}));
  EXPECT_EQ(inOutput("Payload/Demo.app/OrvaneDylib.bundle/OrvaneDylib.dylib"), "Orvane");
  std::vector<std::string> signatures;
  for (const std::string& call : host.allCalls(scratch)) {
    if (call.starts_with("codesign|-f")) signatures.push_back(call.substr(0, 70));
  }
  EXPECT_THAT(signatures,
              ElementsAre(HasSubstr("|@/Payload/Demo.app/Frameworks/OrvaneLogger.framework"),
                          HasSubstr("|@/Payload/Demo.app|--entitlements|")));
}

TEST_F(WrapFlow, KeptExtensionsAreAWarningThatStays) {
  request.isSDK = true;
  request.appMode = "1";
  request.stripExtensions = false;
  inApp("PlugIns/A.appex/A", "");
  ASSERT_TRUE(create()) << error.text();
  EXPECT_THAT(error.text(), HasSubstr("NOT likely to function properly."));
  request.outputFile = folder.file("out_SDK.ipa");
  EXPECT_THAT(namesInOutput(), ::testing::Contains("Payload/Demo.app/PlugIns/A.appex/A"));
}

TEST_F(WrapFlow, PackagedSdkApp) {
  request.isSDK = request.packageApp = true;
  request.appMode = "1";
  ASSERT_TRUE(create()) << error.text();
  EXPECT_THAT(namesInOutput(), ::testing::Contains("Demo_SDK.ipa"));
  // Without a package the app alone is written.
  request.command = CommandWord::kWrap;
  request.packageApp = false;
  request.outputFile.reset();
  request.outputBundleFile = write("bundle.ipa", "old");
  ASSERT_TRUE(create()) << error.text();
  EXPECT_GT(fileSize(*request.outputBundleFile).value_or(0), 100U);
}

TEST_F(WrapFlow, IconsAreNotWorthAFailure) {
  request.isSDK = true;
  request.appMode = "1";
  inApp("Icon.png", "no image");
  ASSERT_TRUE(create()) << error.text();
  EXPECT_EQ(error.text(), "Failed to extract icon files. Error:-1");
}

TEST_F(WrapFlow, FailuresBeforeAnythingIsSigned) {
  const std::pair<std::function<void()>, std::string> cases[] = {
      // There is no lipo to ask which slices the executable has.
      {[] {}, "Failed to execute lipo with exit code: 127"},
      {[&] { removeItem(folder.file("Data/WEXSDK")); },
       "A required file at this location does not exist: " +
           folder.file("Data/WEXSDK/OrvaneLogger.framework/OrvaneLogger")},
      {[&] { host.addTool("codesign"); }, "Failed to validate that dylib is signed by Orvane."},
      {[&] {
         request.library = LibraryKind::kNetworkOnly;
         removeItem(folder.file("Data/OrvaneNetworkOnlyDylib.bundle"));
       },
       "A required file at this location does not exist: " +
           folder.file("Data/OrvaneNetworkOnlyDylib.bundle/OrvaneDylib.dylib")},
  };
  for (const auto& [prepare, text] : cases) {
    SCOPED_TRACE(text);
    prepare();
    EXPECT_FALSE(create());
    EXPECT_EQ(error.text(), text);
    EXPECT_FALSE(fileExists(*request.outputFile));
    EXPECT_THAT(host.allCalls(), ::testing::Not(::testing::Contains(HasSubstr("|-f|-s"))));
  }
}

TEST_F(WrapFlow, ResourcesOfAnSdkApp) {
  // The order check wants a real executable; what it says is logged and given back.
  request.inputFile = folder.file("Payload/Demo.app");
  EXPECT_FALSE(converter().EmbedResourcesIntoApp(&error));
  EXPECT_TRUE(error.isSet());
  EXPECT_FALSE(fileExists(*request.inputFile + "/OrvaneDylib.bundle"));
}

}  // namespace
}  // namespace tovrek::test
