#include "converter/validation.h"

#include <gtest/gtest.h>

#include <functional>

#include "tests/support/ScriptedHostRoot.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/matchers.h"

namespace tovrek {
namespace {

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
    request_.command = CommandWord::kWrap;
    request_.inputFile = folder_.file("in.ipa");
    request_.outputFile = folder_.file("out.wex");
    request_.provisionProfile = profile_;
    request_.certificate = "00aa11";
  }

  // Changes a copy of the record and answers the text that the check fails with.
  std::string errorAfter(const std::function<void(Request&)>& change) {
    Request changed(request_);
    change(changed);
    ErrorText error;
    const bool valid = validate(changed, context_, &error);
    EXPECT_EQ(valid, !error.isSet());
    return error.text();
  }

  test::TemporaryFolder folder_;
  test::ScriptedHostRoot host_;
  std::string profile_;
  RunContext context_;
  Request request_;
};

TEST_F(Validation, GoesThroughItsChecksInOrder) {
  using P = Request;
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
       [](P& p) { p.command = CommandWord::kSdkPrep, p.provisionProfile.reset(); }, ""},
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
      {"SetInfo of no package", [](P& p) { p.command = CommandWord::kSetInfo; },
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
  request_.certificate = "00 Aa 11";
  EXPECT_TRUE(validate(request_, context_, nullptr));
  EXPECT_EQ(request_.certificate, "00Aa11");
  // Blanks stay only when the name has no hexadecimal digit at all.
  EXPECT_EQ(errorAfter([](auto& p) { p.certificate = "iPhone X"; }), failure("iPhoneX"));
  EXPECT_EQ(errorAfter([](auto& p) { p.certificate = "xyz tuv"; }), failure("xyz tuv"));
}

TEST_F(Validation, ChangesTheRecordOnlyWhereItSays) {
  request_.logDisplayLevel = 5;
  EXPECT_FALSE(validate(request_, context_, nullptr));
  EXPECT_EQ(request_.logDisplayLevel, 2);
  request_.outputFile = folder_.file("pkg");
  EXPECT_TRUE(validate(request_, context_, nullptr));
  EXPECT_EQ(request_.outputFile, folder_.file("pkg.wex"));
  request_.inputFile = "/none.cma";
  EXPECT_TRUE(validate(request_, context_, nullptr));
  EXPECT_TRUE(request_.isUpdate);

  Request bundleOnly(request_);
  bundleOnly.outputFile.reset();
  bundleOnly.outputBundleFile = folder_.file("o.ipa");
  EXPECT_TRUE(validate(bundleOnly, context_, nullptr));
  EXPECT_FALSE(bundleOnly.outputFile);
}

TEST(Defaults, OfARequest) {
  const Request request;
  EXPECT_TRUE(request.logFile->ends_with("/logs/Orvane.log"));
  EXPECT_TRUE(request.stripExtensions);
}

}  // namespace
}  // namespace tovrek
