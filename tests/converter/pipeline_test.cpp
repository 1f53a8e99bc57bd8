// Whole conversions, as far as they need no rewriting of executables. zip and unzip are the real
// ones; what the host lacks is scripted.
#include <fmt/format.h>
#include <unistd.h>

#include "host/clock.h"
#include "host/paths.h"
#include "host/process.h"
#include "package/TemporaryDirectory.h"
#include "package/UnzippedIpa.h"
#include "tests/converter/ConverterTest.h"
#include "tests/support/PngBuilder.h"

namespace tovrek::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class RecordedProgress : public TKProgressor {
 public:
  using TKProgressor::TKProgressor;
  void SetProgress(std::string_view stage) override { stages.emplace_back(stage); }
  std::vector<std::string> stages;
};

class Pipeline : public ConverterTest {
 protected:
  Pipeline() {
    host.addTool("codesign", "case $1 in -d) exit 1;; *) echo TeamIdentifier=T >&2;; esac");
    host.addTool("otool", "echo cryptid 0");
    host.addTool("nm");
    host.addTool("openssl", "echo /OU=T");
    write("Data/ResourceRules.plist", "rules");
    param.inputFile = folder.file("Demo.ipa");
    param.outputFile = folder.file("out.ipa");
    param.provisionProfile = write("demo.mobileprovision", "signed profile");
    param.isResign = true;
    profileExpires(currentTime() + 86400);
    createDirectories(folder.file("Payload"));
    moveItem(app(), folder.file("Payload/Demo.app"));
  }
  void profileExpires(double when) {
    PlistDictionary entitlements, profile;
    entitlements.set("application-identifier", "TEAMAAAAAA.*");
    entitlements.set("com.apple.developer.team-identifier", "TEAMAAAAAA");
    profile.set("Entitlements", entitlements);
    profile.set("ExpirationDate", PlistValue::Date{when});
    const std::string path = write("profile.plist", serializePlist(profile, PlistFormat::kXml));
    host.addTool("security", "case $1 in cms) cat " + quotedForShell(path) + ";; esac");
  }
  // Writes into the app that is going to be zipped.
  void inApp(const std::string& name, const std::string& text) {
    write("Payload/Demo.app/" + name, text);
  }
  void link(const std::string& target, const std::string& name) {
    createDirectories(containingFolder(folder.file(name)));
    ASSERT_EQ(::symlink(target.c_str(), folder.file(name).c_str()), 0);
  }
  bool create(const std::vector<std::string>& items = {"Payload"}) {
    Outcome zipped;
    Command command{.argv = {"/usr/bin/zip", "-qry", *param.inputFile}};
    command.argv.insert(command.argv.end(), items.begin(), items.end());
    command.workingDirectory = folder.path();
    EXPECT_TRUE(runProcess(command, &zipped) && zipped.status == 0);
    host.forgetCalls();
    progress.stages.clear();
    error.clear();
    const bool result = AppConverter(param, progress, folder.file("Data")).CreatePackage(&error);
    scratch = param.unzippedIpaInstance ? param.unzippedIpaInstance->tempDir() : "";
    param.unzippedIpaInstance.reset();
    return result;
  }
  std::string inOutput(const std::string& name) {
    Outcome outcome;
    runProcess({.argv = {"/usr/bin/unzip", "-p", *param.outputFile, name}}, &outcome);
    return outcome.output;
  }

  RecordedProgress progress{Global_TKLib_Logger()};
  std::string scratch;
};

TEST_F(Pipeline, SignsAnIpaAnew) {
  inApp("_CodeSignature/CodeResources", "old");
  inApp("PlugIns/A.appex/A", "");
  inApp("Watch/W.app/W", "");
  inApp("Frameworks/F.dylib", "");
  param.replacementBundleID = "com.example.new";
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
  EXPECT_EQ(param.originalBundleID, "com.example.demo");
  // Extensions are gone; frameworks keep their signature.
  Outcome names;
  runProcess({.argv = {"/usr/bin/unzip", "-Z1", *param.outputFile}}, &names);
  EXPECT_EQ(names.output.find("appex"), std::string::npos);
  EXPECT_EQ(names.output.find("Watch"), std::string::npos);
  const auto calls = host.allCalls(scratch);
  EXPECT_EQ(calls.back(),
            "codesign|-f|-s|ID|@/Payload/Demo.app|--entitlements|@/new-entitlement.plist|"
            "--preserve-metadata=requirements");
  EXPECT_FALSE(fileExists(scratch));
}

TEST_F(Pipeline, KeptExtensionsAreAWarningThatStays) {
  inApp("PlugIns/A.appex/A", "");
  param.stripExtensions = false;
  EXPECT_TRUE(create());
  EXPECT_THAT(error.text(), HasSubstr("NOT likely to function properly."));
}

TEST_F(Pipeline, UnpackingLeavesItsTextInTheSlot) {
  EXPECT_TRUE(create());
  EXPECT_EQ(error.text(), "Invalid input");
}

TEST_F(Pipeline, RefusalsBeforeAnyChange) {
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
    EXPECT_FALSE(fileExists(*param.outputFile));
    for (const std::string& call : host.allCalls())
      EXPECT_THAT(call, ::testing::Not(HasSubstr("-f|-s")));
  }
}

TEST_F(Pipeline, LinksOutOfTheArchiveAreRefused) {
  write("outside/Info.plist", "untouched");
  write("outside/Frameworks/A.dylib", "untouched");
  const std::string outside = folder.file("outside");
  for (const std::string name : {"Frameworks", "OrvaneDylib.bundle", "_CodeSignature", "PlugIns"}) {
    SCOPED_TRACE(name);
    link(outside, "Payload/Demo.app/" + name);
    EXPECT_FALSE(create());
    EXPECT_EQ(error.text(), "The input holds a link that leads out of it: " + name);
    removeItem(folder.file("Payload/Demo.app/" + name));
    removeItem(*param.inputFile);
  }
  EXPECT_EQ(contentsOf(outside + "/Info.plist"), "untouched");
  EXPECT_EQ(contentsOf(outside + "/Frameworks/A.dylib"), "untouched");
  EXPECT_EQ(listDirectory(outside)->size(), 2U);
}

TEST_F(Pipeline, ArchiveBringsNothingIntoThePackage) {
  write("ORVANE_PACKAGE/planted.txt", "");
  write("outside", "untouched");
  link(folder.file("outside"), "ORVANE_PACKAGE/Demo.ipa");
  EXPECT_TRUE(create({"Payload", "ORVANE_PACKAGE"})) << error.text();
  EXPECT_EQ(contentsOf(folder.file("outside")), "untouched");
}

TEST_F(Pipeline, FailuresOfTheLastSteps) {
  host.addTool("codesign", "case $1 in -f) exit 5;; esac");
  EXPECT_FALSE(create());
  EXPECT_EQ(error.text(),
            "Failed to execute codesign:withEntitlement:withError: -  with exit code: 5");
  host.addTool("codesign");
  param.outputFile = folder.file("nowhere/out.ipa");
  EXPECT_FALSE(create());
  EXPECT_THAT(error.text(), HasSubstr("/ORVANE_PACKAGE/Demo.ipa to " + *param.outputFile));
}

TEST_F(Pipeline, UnpackingForTheFrontEnd) {
  ASSERT_TRUE(create()) << error.text();  // makes the archive
  host.addTool("otool", "echo WEX.framework");
  EXPECT_FALSE(AppConverter::unzipIpaAndProcessConverterParameters(param, nullptr, &error));
  EXPECT_TRUE(param.isSDK);
  EXPECT_THAT(error.text(), HasSubstr("Wrapping an SDK app with this tool is not supported."));

  param.isSDK = false;
  host.addTool("otool", "echo cryptid 0");
  EXPECT_TRUE(AppConverter::unzipIpaAndProcessConverterParameters(param, nullptr, &error));
  ASSERT_TRUE(param.unzippedInputDirObj && param.unzippedIpaInstance);
  EXPECT_EQ(param.unzippedIpaInstance->appPath(),
            param.unzippedInputDirObj->tempDir() + "/Payload/Demo.app");

  param.inputFile = folder.file("Demo.zip");
  EXPECT_FALSE(AppConverter::unzipIpaAndProcessConverterParameters(param, nullptr, &error));
  EXPECT_EQ(error.text(), "Unknown input file.");
  param.inputFile.reset();
  EXPECT_FALSE(AppConverter::unzipIpaAndProcessConverterParameters(param, nullptr, &error));
  EXPECT_EQ(error.text(), "Invalid input");
}

// What a conversion that inserts the management files needs besides.
class Insertion : public Pipeline {
 protected:
  Insertion() {
    param.isResign = false;
    param.outputFile = folder.file("out.wex");
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
    runProcess({.argv = {"/usr/bin/unzip", "-Z1", *param.outputFile}}, &names);
    std::istringstream lines(names.output);
    std::vector<std::string> result;
    for (std::string line; std::getline(lines, line);) result.push_back(line);
    return result;
  }
};

TEST_F(Insertion, SdkAppIsPreparedAndSigned) {
  param.isSDK = true;
  param.appMode = "1";
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

  param.outputFile = folder.file("out_SDK.ipa");  // beside the package
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

TEST_F(Insertion, PackagedSdkApp) {
  param.isSDK = param.packageApp = true;
  param.appMode = "1";
  ASSERT_TRUE(create()) << error.text();
  EXPECT_THAT(namesInOutput(), ::testing::Contains("Demo_SDK.ipa"));
  // Without a package the app alone is written.
  param.isWrapCommand = true;
  param.packageApp = false;
  param.outputFile.reset();
  param.outputBundleFile = write("bundle.ipa", "old");
  ASSERT_TRUE(create()) << error.text();
  EXPECT_GT(fileSize(*param.outputBundleFile).value_or(0), 100U);
}

TEST_F(Insertion, IconsAreNotWorthAFailure) {
  param.isSDK = true;
  param.appMode = "1";
  inApp("Icon.png", "no image");
  ASSERT_TRUE(create()) << error.text();
  EXPECT_EQ(error.text(), "Failed to extract icon files. Error:-1");
}

TEST_F(Insertion, FailuresBeforeAnythingIsSigned) {
  const std::pair<std::function<void()>, std::string> cases[] = {
      // The app's executable is none.
      {[] {}, "ERROR: Failed to open application binary image."},
      {[&] { removeItem(folder.file("Data/WEXSDK")); },
       "A required file at this location does not exist: " +
           folder.file("Data/WEXSDK/OrvaneLogger.framework/OrvaneLogger")},
      {[&] { host.addTool("codesign"); }, "Failed to validate that dylib is signed by Orvane."},
      {[&] {
         param.useNetworkOnlyLib = true;
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
    EXPECT_FALSE(fileExists(*param.outputFile));
    EXPECT_THAT(host.allCalls(), ::testing::Not(::testing::Contains(HasSubstr("|-f|-s"))));
  }
}

TEST_F(Insertion, ResourcesOfAnSdkApp) {
  // The order check wants a real executable; what it says is logged and given back.
  param.inputFile = folder.file("Payload/Demo.app");
  EXPECT_FALSE(converter().EmbedResourcesIntoApp(&error));
  EXPECT_TRUE(error.isSet());
  EXPECT_FALSE(fileExists(*param.inputFile + "/OrvaneDylib.bundle"));
}

// A package with a manifest and an .ipa, as a wrap leaves it.
class Packages : public Pipeline {
 protected:
  Packages() {
    inApp("OrvaneDylib.bundle/OrvaneDylib.dylib", "");
    zip("inner.ipa", {"Payload"});
    write("manifest.xml",
          "<MobileAppPackage><PackageInfo><Description>old</Description></PackageInfo><MobileApp>"
          "<MinPlatform CRKW=\"MamMinPlatform\">8.0</MinPlatform><BundleFile>inner.ipa</BundleFile>"
          "<AppStoreUrl CRKW=\"MamPublicStoreURL\">x</AppStoreUrl></MobileApp></MobileAppPackage>");
    write("icon.PNG", "icon");
    zip("in.wex", {"inner.ipa", "manifest.xml", "icon.PNG"});
    param.isResign = false;
    param.inputFile = folder.file("in.wex");
    param.outputFile = folder.file("out.wex");
  }
  void zip(const std::string& archive, const std::vector<std::string>& items) {
    Outcome zipped;
    Command command{.argv = {"/usr/bin/zip", "-qry", archive}};
    command.argv.insert(command.argv.end(), items.begin(), items.end());
    command.workingDirectory = folder.path();
    EXPECT_TRUE(runProcess(command, &zipped) && zipped.status == 0);
  }
  AppConverter subject() { return {param, progress, folder.file("Data")}; }
};

TEST_F(Packages, AreSignedAnew) {
  ASSERT_TRUE(subject().CreatePackageFromWex(&error)) << error.text();
  EXPECT_EQ(inOutput("icon.PNG"), "icon");
  EXPECT_THAT(inOutput("manifest.xml"), HasSubstr("<Description>old</Description>"));
  write("inner.zip", inOutput("inner.ipa"));
  Outcome profile;
  runProcess({.argv = {"/usr/bin/unzip", "-p", folder.file("inner.zip"),
                       "Payload/Demo.app/embedded.mobileprovision"}},
             &profile);
  EXPECT_EQ(profile.output, "signed profile");
  std::vector<std::string> signatures;
  for (const std::string& call : host.allCalls()) {
    if (call.starts_with("codesign|-f")) signatures.push_back(call);
  }
  ASSERT_EQ(signatures.size(), 2U);
  EXPECT_THAT(signatures[0], ::testing::EndsWith("/OrvaneDylib.bundle/OrvaneDylib.dylib"));
}

TEST_F(Packages, AreUpdated) {
  param.isSetInfoCommand = true;
  param.minPlatform = "9.0";
  param.description = "new";
  const auto update = [&] {
    error.clear();
    return subject().CreatePackage(&error);
  };
  ASSERT_TRUE(update()) << error.text();
  EXPECT_THAT(inOutput("manifest.xml"), HasSubstr(">9.0</MinPlatform>"));
  EXPECT_THAT(inOutput("manifest.xml"), HasSubstr("<Description>new</Description>"));
  EXPECT_EQ(inOutput("icon.PNG"), "icon");

  param.sdkOp = 1;
  param.appStoreUrl = "http://example.com";
  ASSERT_TRUE(update());
  EXPECT_THAT(inOutput("manifest.xml"), HasSubstr("aHR0cDovL2V4YW1wbGUuY29t"));

  param.sdkOp = 2;
  param.embedBundlePath = write("Other.ipa", "other");
  ASSERT_TRUE(update());
  EXPECT_EQ(inOutput("Other.ipa"), "other");
  EXPECT_EQ(inOutput("inner.ipa"), "");
  EXPECT_THAT(inOutput("manifest.xml"), HasSubstr("<BundleFile>Other.ipa</BundleFile>"));
  EXPECT_THAT(inOutput("manifest.xml"), ::testing::Not(HasSubstr("AppStoreUrl")));

  param.maxPlatform = "10";  // no such element in this manifest
  EXPECT_FALSE(update());
}

TEST_F(Packages, TakeInNothingThroughLinks) {
  const std::string secret = write("secret", "secret");
  link(secret, "planted.xml");
  zip("in.wex", {"planted.xml"});
  ASSERT_TRUE(subject().CreatePackageFromWex(&error)) << error.text();
  EXPECT_EQ(inOutput("planted.xml"), "");

  link(secret, "Payload/Demo.app/planted");
  removeItem(folder.file("inner.ipa"));
  zip("inner.ipa", {"Payload"});
  zip("in.wex", {"inner.ipa"});
  EXPECT_FALSE(subject().CreatePackageFromWex(&error));
  EXPECT_EQ(error.text(), "The input holds a link that leads out of it: Payload/Demo.app/planted");
}

}  // namespace
}  // namespace tovrek::test
