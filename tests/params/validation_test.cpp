#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "params/AppConverterParam.h"
#include "tests/support/ScriptedHostRoot.h"
#include "tests/support/TemporaryFolder.h"

namespace tovrek {
namespace {

using ::testing::ElementsAre;

constexpr char kProfileXml[] =
    "<plist version=\"1.0\"><dict><key>Name</key><string>x</string></dict></plist>";

// The record of a good Wrap: the profile is decoded by a script, the keychain holds one digest.
class Validation : public ::testing::Test {
 protected:
  Validation() {
    host_.addTool("security", "case $1 in cms) echo '" + std::string(kProfileXml) +
                                  "';; *) echo 'SHA-1 hash: 00AA11';; esac");
    folder_.write("in.ipa", "");
    folder_.write("in.wex", "");
    folder_.write("in.WEX", "");
    profile_ = folder_.write("p.mobileprovision", "");
    param_.isWrapCommand = true;
    param_.inputFile = folder_.file("in.ipa");
    param_.outputFile = folder_.file("out.wex");
    param_.provisionProfile = profile_;
    param_.certificate = "00aa11";
  }

  // Changes a copy of the record and answers the text that the check fails with.
  std::string errorAfter(const std::function<void(AppConverterParam&)>& change) {
    AppConverterParam changed(param_);
    change(changed);
    ErrorText error;
    const bool valid = changed.validate(&error);
    EXPECT_EQ(valid, !error.isSet());
    return error.text();
  }

  test::TemporaryFolder folder_;
  test::ScriptedHostRoot host_;
  std::string profile_;
  AppConverterParam param_;
};

TEST_F(Validation, GoesThroughItsChecksInOrder) {
  using P = AppConverterParam;
  const auto at = [&](const std::string& name) { return folder_.file(name); };
  const auto missing = [&](const std::string& path) {
    return "A required file at this location does not exist: " + path;
  };
  const auto unwritable = [](const std::string& path) {
    return "Could not write to output path (" + path +
           "). Make sure this location exists and that you have write access to it.";
  };
  const std::string wrongOutput = "Output file has incorrect extension, it must be '.wex'";
  struct Case {
    const char* what;
    std::function<void(P&)> change;
    std::string error;
  };
  const std::vector<Case> cases = {
      {"good", [](P&) {}, ""},
      {"SDK without mode", [](P& p) { p.isSDK = true, p.appMode = ""; },
       "App mode not specified for SDK option"},
      {"store address without SDK", [](P& p) { p.appStoreUrl = "http://h"; },
       "SDK Option is not specified"},
      {"empty store address", [](P& p) { p.appStoreUrl = ""; }, ""},
      {"display level first", [](P& p) { p.logDisplayLevel = 5, p.logWriteLevel = 9; },
       "Specified log level (5) is out of range, it must be from 0 to 4."},
      {"write level", [](P& p) { p.logDisplayLevel = 4, p.logWriteLevel = -1; },
       "Specified log level (-1) is out of range, it must be from 0 to 4."},
      {"level of an update", [](P& p) { p.isUpdate = true, p.logWriteLevel = 5; },
       "Specified log level (5) is out of range, it must be from 0 to 4."},
      {"no input", [&](P& p) { p.inputFile = at("none.ipa"); }, missing(at("none.ipa"))},
      {"profile is a folder", [&](P& p) { p.provisionProfile = folder_.path(); },
       missing(folder_.path())},
      {"no profile", [](P& p) { p.provisionProfile.reset(); }, missing("")},
      {"SdkPrep needs no profile",
       [](P& p) { p.isSdkPrepCommand = true, p.provisionProfile.reset(); }, ""},
      {"update needs no input",
       [](P& p) { p.isUpdate = true, p.inputFile = "/none.wex", p.provisionProfile.reset(); }, ""},
      {"cma is an update", [](P& p) { p.inputFile = "/none.CMA"; }, ""},
      {"output folder", [](P& p) { p.outputFile = "/none/o.zip"; }, unwritable("/none")},
      {"bundle folder", [](P& p) { p.outputBundleFile = "/none/o.ipa"; }, unwritable("/none")},
      {"output in the working folder", [](P& p) { p.outputFile = "o.wex"; }, ""},
      {"output extension", [&](P& p) { p.outputFile = at("o.zip"); }, wrongOutput},
      {"upper-case output", [&](P& p) { p.outputFile = at("o.WEX"); }, ""},
      {"re-signed output", [&](P& p) { p.isResign = true, p.outputFile = at("o.ipa"); }, ""},
      {"re-sign of a package", [&](P& p) { p.isResign = true, p.inputFile = at("in.wex"); },
       "Input file (" + at("in.wex") + ") is invalid."},
      {"only a bundle", [&](P& p) { p.outputFile.reset(), p.outputBundleFile = at("o.IPA"); }, ""},
      {"bundle extension", [&](P& p) { p.outputBundleFile = at("o.wex"); },
       "Output bundle file has incorrect extension, it must be '.ipa'"},
      {"policy file first",
       [](P& p) { p.appSpecificPolicyFilepath = "/none.xml", p.entitlementsPath = "/none2"; },
       missing("/none.xml")},
      {"entitlements file", [](P& p) { p.entitlementsPath = "/none2"; }, missing("/none2")},
      {"package signing", [&](P& p) { p.isWEXSigning = true, p.inputFile = at("in.wex"); }, ""},
      {"package signing is exact", [&](P& p) { p.isWEXSigning = true, p.inputFile = at("in.WEX"); },
       "Input file (" + at("in.WEX") + ") is invalid."},
      {"SetInfo of no package", [](P& p) { p.isSetInfoCommand = true; },
       "Input file (-in) is not WEX."},
      {"apk skips all but the output",
       [](P& p) {
         p.inputFile = "/none.Apk", p.isSDK = true, p.logWriteLevel = 7;
         p.entitlementsPath = "/none2";
       },
       ""},
      {"apk output", [&](P& p) { p.inputFile = "/none.apk", p.outputFile = at("o.zip"); },
       wrongOutput},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(errorAfter(c.change), c.error);
  }
}

TEST_F(Validation, LooksUpCertificatesItDoesNotFindInTheProfile) {
  const auto failure = [](const std::string& name) {
    return "iOS distribution certificate name (" + name +
           ") does not match certificates listed in the iOS distribution provisioning profile. "
           "Please choose a valid certificate that matches those in the specified distribution "
           "provisioning profile.";
  };
  param_.certificate = "00 Aa 11";
  EXPECT_TRUE(param_.validate(nullptr));
  EXPECT_EQ(param_.certificate, "00Aa11");
  // Blanks stay only when the name has no hexadecimal digit at all.
  EXPECT_EQ(errorAfter([](auto& p) { p.certificate = "iPhone X"; }), failure("iPhoneX"));
  EXPECT_EQ(errorAfter([](auto& p) { p.certificate = "xyz tuv"; }), failure("xyz tuv"));
}

TEST_F(Validation, ChangesTheRecordOnlyWhereItSays) {
  param_.logDisplayLevel = 5;
  EXPECT_FALSE(param_.validate(nullptr));
  EXPECT_EQ(param_.logDisplayLevel, 2);
  param_.outputFile = folder_.file("pkg");
  EXPECT_TRUE(param_.validate(nullptr));
  EXPECT_EQ(param_.outputFile, folder_.file("pkg.wex"));
  param_.inputFile = "/none.cma";
  EXPECT_TRUE(param_.validate(nullptr));
  EXPECT_TRUE(param_.isUpdate);

  AppConverterParam bundleOnly(param_);
  bundleOnly.outputFile.reset();
  bundleOnly.outputBundleFile = folder_.file("o.ipa");
  EXPECT_TRUE(bundleOnly.validate(nullptr));
  EXPECT_FALSE(bundleOnly.outputFile);
}

TEST(Record, CopiesAllButTheWorkingObjects) {
  AppConverterParam original;
  EXPECT_TRUE(original.logFile->ends_with("/logs/Orvane.log"));
  EXPECT_TRUE(original.stripExtensions);
  original.adalClientId = "id";
  original.sdkOp = 2;
  original.outputIPAFileName = "o.ipa";
  const AppConverterParam copy(original);
  EXPECT_EQ(copy.adalClientId, "id");
  EXPECT_EQ(copy.sdkOp, 2);
  EXPECT_FALSE(copy.outputIPAFileName);
}

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
    EXPECT_EQ(AppConverterParam::verifyIfOSVerisonIsMavericksandAbove(), c.mavericks) << c.version;
    EXPECT_EQ(AppConverterParam::verifyIfOSVerisonIsCatalinaOrAbove(), c.catalina) << c.version;
  }
  host_.addFile("/System/Library/CoreServices/SystemVersion.plist", "no property list");
  EXPECT_FALSE(AppConverterParam::verifyIfOSVerisonIsMavericksandAbove());
}

TEST_F(HostChecks, AsksForToolsAsTheVersionNeeds) {
  host_.addTool("pkgutil", "echo unknown; exit 1");
  std::vector<bool> told;
  const auto note = [&](bool installed, bool mayInstall) { told = {installed, mayInstall}; };

  setVersion("10.9");
  EXPECT_TRUE(AppConverterParam::verifyCommandLineToolisInstalled(note)) << "any output will do";
  EXPECT_THAT(told, ElementsAre(true, true));
  setVersion("10.8");
  host_.addTool("pkgutil", "exit 1");
  EXPECT_FALSE(AppConverterParam::verifyCommandLineToolisInstalled(note));
  EXPECT_THAT(told, ElementsAre(false, false));
  EXPECT_THAT(host_.allCalls(), ElementsAre("pkgutil|--pkg-info=com.apple.pkg.CLTools_Executables",
                                            "pkgutil|--pkg-info=com.apple.pkg.DeveloperToolsCLI"));

  setVersion("10.15");
  host_.addTool("otool");
  host_.addTool("nm");
  ::testing::internal::CaptureStderr();
  EXPECT_FALSE(AppConverterParam::verifyCommandLineToolisInstalled(note));
  EXPECT_THAT(::testing::internal::GetCapturedStderr(),
              ::testing::EndsWith(" Command Line tool /usr/bin/codesign: not present\n"));
  EXPECT_THAT(told, ElementsAre(false, true));
  host_.addTool("codesign");
  EXPECT_TRUE(AppConverterParam::verifyCommandLineToolisInstalled(nullptr));
}

TEST_F(HostChecks, StartsTheInstallation) {
  host_.addTool("xcode-select", "echo requested; exit 1");
  ::testing::internal::CaptureStderr();
  EXPECT_TRUE(AppConverterParam().installCommandLineTools());
  EXPECT_THAT(::testing::internal::GetCapturedStderr(),
              ::testing::HasSubstr(" outputStr requested\n"));
  EXPECT_THAT(host_.allCalls(), ElementsAre("xcode-select|--install"));
}

}  // namespace
}  // namespace tovrek
