// The command line as text in, text and request out.
#include <gtest/gtest.h>

#include <functional>

#include "programs/tovrek/CommandLineProcessor.h"
#include "tests/support/ScriptedHostRoot.h"
#include "tests/support/matchers.h"

namespace tovrek {
namespace {

using Words = std::vector<std::string>;

Words operator+(Words left, const Words& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

// Options that satisfy the checks after parsing.
const Words kWrap = {"Wrap", "-Cert", "C", "-Profile", "P", "-in", "/i.ipa", "-out", "o.wex"};
const Words kSign = {"Sign", "-Cert", "C", "-Profile", "P"};
const Words kSetInfo = {"SetInfo", "-in", "/i.wex", "-out", "o.wex"};
const Words kSdkPrep = {"SdkPrep",   "-in",      "/i.app",        "-out", "o.wex",
                        "-storeURL", "http://h", "-entitlements", "/e"};

class Parser : public ::testing::Test {
 protected:
  Parser() {
    host_.addFile("/System/Library/CoreServices/SystemVersion.plist",
                  "<plist version=\"1.0\"><dict><key>ProductVersion</key><string>10.15.7</string>"
                  "</dict></plist>");
    for (const char* tool : {"nm", "otool", "codesign"}) host_.addTool(tool);
  }

  // Parses; the request stays until the next call.
  const std::optional<Request>& parse(const Words& words) {
    error_.clear();
    ::testing::internal::CaptureStdout();
    ::testing::internal::CaptureStderr();
    request_ = processor_.processCommandLine(words, &error_);
    out_ = ::testing::internal::GetCapturedStdout();
    log_ = ::testing::internal::GetCapturedStderr();
    return request_;
  }
  // The text that the words are refused with; "accepted" when they are not.
  std::string refusal(const Words& words) {
    if (parse(words)) return error_.isSet() ? "accepted with a text" : "accepted";
    return error_.text();
  }

  test::ScriptedHostRoot host_;
  PellRequest keychain_;
  CommandLineProcessor processor_{keychain_};
  std::optional<Request> request_;
  ErrorText error_;
  std::string out_, log_;
};

TEST_F(Parser, RefusesWordsOutOfPlace) {
  const std::string first =
      "First command option is missing ex: \"Wrap\" ,\"Sign\" ,\" SetInfo\",\"GetInfo\" Command "
      "line should start with one of these options \"Wrap\" ,\"Sign\" ,\" SetInfo\",\"GetInfo\"";
  const std::string several =
      "Multiple command options are not allowed , Choose one of these i.e \"Wrap\" ,\"Sign\" ,\" "
      "SetInfo\",\"GetInfo\" ";
  const auto twice = [](const std::string& word) {
    return "Argument (" + word + ") is given twice, please give all arguments only once.";
  };
  const auto missing = [](const std::string& option) {
    return "A required command line argument (" + option + ") is missing. ";
  };
  struct Case {
    Words words;
    std::string error;
  };
  const std::vector<Case> cases = {
      {{}, missing("-in")},
      {{""}, first},
      {{"-in", "x"}, first},
      {{"Wrap", "x", "x", "Sign"}, twice("x")},
      {{"Wrap", "Wrap"}, twice("Wrap")},
      {{"Wrap", "wrap"}, several},
      {{"wrap", "-appName", "sIGN"}, several},
      {{"Wrap", "-logWriteLevel", "2", "-logDisplayLevel", "2"}, twice("2")},
      {kWrap + Words{"-logWriteLevel", "3", "-logDisplayLevel", "2"}, "accepted"},
      {{"GetInfo"}, "Command (GetInfo) not implemented."},
      {{"getinfo", "-any", "x"}, "Command (GetInfo) not implemented."},
      {{"Wrap"}, missing("-Cert")},
      {{"Wrap", "-cert", "C"}, missing("-Profile")},
      {{"Wrap", "-cert", "C", "-profile", "P"}, missing("-in")},
      {{"Wrap", "-cert", "C", "-profile", "P", "-in", "x.ipa"}, missing("-out/-outBundle")},
      {{"Wrap", "-cert", "C", "-profile", "P", "-in", "x.ipa", "-outBundle", "b"}, "accepted"},
      {{"Sign"}, missing("-in")},
      {{"Sign", "-in", "x.ipa"}, missing("-Cert")},
      {{"SetInfo"}, missing("-in")},
      {{"SetInfo", "-in", "x"}, missing("-out")},
      {{"SdkPrep"}, missing("-storeURL")},
      {{"SdkPrep", "-storeURL", "http://h"}, missing("-in")},
      {{"SdkPrep", "-storeURL", "http://h", "-in", "x.app", "-out", "o"}, missing("-entitlements")},
      {{"Wrap", "-cert", "C", "-profile", "P", "-in", "x.APP", "-out", "o"},
       "-sdk is not set to YES when -in parameter is app"},
      {{"SetInfo", "-in", "x.app", "-out", "o"},
       "-sdk is not set to YES when -in parameter is app"},
      {{"Wrap", "-cert", "C", "-profile", "P", "-in", "x.ipa", "-outBundle", " "},
       "-sdk is not set to YES when -in parameter is ipa and -appMode is specified"},
      {{"Wrap", "-cert", "C", "-profile", "P", "-in", "x.ipa", "-out", ""}, "accepted"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(refusal(c.words), c.error) << ::testing::PrintToString(c.words);
  }
}

TEST_F(Parser, RefusesValues) {
  const auto missing = [](const std::string& option) {
    return "Parameter (" + option + ") value is missing. ";
  };
  const auto invalid = [](const std::string& option) {
    return "Parameter (" + option + ") value is invalid. ";
  };
  const auto level = [](const std::string& value) {
    return "Log level (" + value + ") is invalid, it must be an integer from 0 to 4.";
  };
  const auto unknown = [](const std::string& option, const std::string& command) {
    return "Command line option " + option + " is unknown with \"" + command + "\" command.";
  };
  const std::string eitherOr =
      "Error: Parameter value is invalid. You can use either -storeURL or -embedBundle, but not "
      "both.";
  struct Case {
    Words words;
    std::string error;
  };
  const std::vector<Case> cases = {
      {{"Wrap", "-CERT"}, missing("-CERT")},
      {{"Wrap", "-Cert", "-IN"}, missing("-Cert")},
      {{"Wrap", "-help", "-in"}, missing("-help")},
      // No option of Sign, so it is a value.
      {{"Sign", "-Cert", "-storeURL"}, "A required command line argument (-in) is missing. "},
      {{"Wrap", "-resign"}, unknown("-resign", "Wrap")},
      {{"sign", "x"}, unknown("x", "Sign")},
      {{"SetInfo", "-Cert"}, unknown("-Cert", "SetInfo")},
      {{"SdkPrep", "-Cert"}, unknown("-Cert", "SdkPrep")},
      {{"Wrap", "-logWriteLevel", ""}, level("")},
      {{"Sign", "-logWriteLevel", "2x"}, level("2x")},
      {{"SetInfo", "-logDisplayLevel", "-1"}, level("-1")},
      {kWrap + Words{"-logWriteLevel", "99999999999999999999"}, "accepted"},
      {{"Wrap", "-sdk", "-in"},
       "Wrapping an SDK app by using this command is not supported. See the WEX Toolkit "
       "documentation for information on preparing the app for App Store distribution."},
      {{"Wrap", "-appMode", "4"}, invalid("-appMode")},
      {{"Wrap", "-appType", "sdkapp"}, invalid("-appType")},
      {{"Wrap", "-storeurl", "bareword"}, invalid("-storeURL")},
      {{"Wrap", "-storeURL", "http://h/a b"}, invalid("-storeURL")},
      {kSetInfo + Words{"-storeURL", "http://h/a b%"}, "accepted"},
      {{"SetInfo", "-storeURL", "http:///a"}, invalid("-storeURL")},
      {{"SetInfo", "-storeURL", "http://h", "-embedBundle"}, eitherOr},
      {{"SetInfo", "-embedBundle", "b", "-storeURL"}, eitherOr},
      {{"SetInfo", "-embedBundle", "-storeURL"}, missing("-embedBundle")},
      {{"SdkPrep", "-storeURL", "bareword"}, invalid("-storeURL")},
      {{"SdkPrep", "-appMode", "4"}, invalid("-appMode")},
      {{"SdkPrep", "-appMode", "x"}, invalid("-appMode")},
      {{"SdkPrep", "-appType", "other"}, invalid("-appType")},
      {kSign + Words{"-in", "x.ipa", "-reSign", "yes", "-wexResign", "YES"},
       "Command line argument (-resign) conflicts with (-wexResign)."},
      {kSign + Words{"-in", "x.wex", "-reSign", "yes"},
       "Command line argument (-resign) conflicts with (-wexResign)."},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(refusal(c.words), c.error) << ::testing::PrintToString(c.words);
  }
}

TEST_F(Parser, FillsTheRecord) {
  using P = Request;
  struct Case {
    Words words;
    std::function<bool(const P&)> holds;
  };
  const std::vector<Case> cases = {
      {kWrap,
       [](const P& p) { return p.packageApp && p.command == CommandWord::kWrap && !p.isUpdate; }},
      {kWrap + Words{"-outBundle", " b.ipa\n", "-appMode", "1"},
       [](const P& p) { return p.outputBundleFile == "b.ipa" && p.appMode == "1"; }},
      {kWrap + Words{"-appMode", "1", "-outBundle", "b.ipa"},
       [](const P& p) { return p.appMode == "2"; }},
      {kWrap + Words{"-appType", "ENTERPRISE"},
       [](const P& p) { return p.isSDK && p.appMode == "3" && !p.packageApp; }},
      {kWrap + Words{"-packageApp", "-appType", "enterprise"},
       [](const P& p) { return p.packageApp; }},
      {kWrap + Words{"-IN", "/x//y/../z.ipa", "-appDesc", "a \"b\"", "-noStripExtensions"},
       [](const P& p) {
         return p.inputFile == "/x/z.ipa" && p.description == "a \"b\"" && !p.stripExtensions;
       }},
      {kSign + Words{"-in", "/a/b/x.IPA"},
       [](const P& p) { return p.isResign && p.outputFile == "/a/b/x_Resign.IPA"; }},
      {kSign + Words{"-in", "x.Wex", "-reSign", "maybe"},
       [](const P& p) {
         return p.isWEXSigning && !p.isResign && p.outputFile == "./x_Resign.Wex";
       }},
      {kSign + Words{"-in", "x.ipa", "-reSign", "yes", "-RESIGN", "No", "-upgrade"},
       [](const P& p) { return p.isResign && p.preserveUpgradeCompatibility; }},
      {kSetInfo,
       [](const P& p) { return p.isUpdate && !p.isSDK && p.sdkOp == SdkOperation::kNone; }},
      {kSetInfo + Words{"-appDesc", "a \"b\"", "-embedBundle", "b"},
       [](const P& p) {
         return p.description == "a b" && p.isSDK && p.sdkOp == SdkOperation::kEmbeddedBundle;
       }},
      {kSetInfo + Words{"-storeURL", "http://h/a b"},
       [](const P& p) {
         return p.appStoreUrl == "http://h/a b" && p.sdkOp == SdkOperation::kStoreAddress;
       }},
      {kSdkPrep + Words{"-appType", "Activation", "-excludedDevices", "\"ipad\""},
       [](const P& p) {
         return p.isUpdate && p.isSDK && p.appMode == "4" && p.excludedDevices == "ipad";
       }},
      {kSdkPrep + Words{"-appMode", "5x", "-appIdPrefix", "T//E"},
       [](const P& p) { return p.appMode == "5x" && p.teamId == "T/E"; }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(::testing::PrintToString(c.words));
    ASSERT_TRUE(parse(c.words)) << error_.text();
    EXPECT_TRUE(c.holds(*request_));
    EXPECT_FALSE(request_->wexToolKitPath->empty());
  }
}

TEST_F(Parser, PrintsTraces) {
  struct Case {
    Words words;
    std::string output;
  };
  const std::vector<Case> cases = {
      {{"Wrap", "-Cert", "{}%s", "-Profile", "P", "-in", "/a//b.ipa", "-out", " o ", "-outBundle",
        "b"},
       "Option: certificate ({}%s)\nOption: provisionProfile (P)\nOption: inputFile (/a/b.ipa)\n"
       "Option: outputFile (o)\nOption: outputBundleFile (b)\n"},
      {{"Wrap",
        "-appDesc",
        "d",
        "-bundleID",
        "i",
        "-logFile",
        "l",
        "-logWriteLevel",
        "007",
        "-logDisplayLevel",
        "3",
        "-appName",
        "n",
        "-upgrade",
        "-minPlatform",
        "7",
        "-maxPlatform",
        "9",
        "-excludedDevices",
        "e"},
       "Option: package description (d)\nOption: bundle identifier (i)\nOption: logFile name (l)\n"
       "Option: logWriteLevel (7)\nOption: logDisplayLevel (3)\nOption: appname (n)\n"
       "Option: minPlatform (7)\nOption: maxPlatform (9)\nOption: excludedDevices (e)\n"},
      {{"Wrap", "-packageApp", "-storeURL", "http://h", "-appMode", "1", "-appType", "Premium",
        "-policyXML", "p/", "-pell", "-keychainPath", "k", "-noStripExtensions",
        "-useNetworkOnlyLib", "-adalClientID", " c ", "-adalNSGResource", " r"},
       "Option: packageApp \nOption: storeURL (http://h)\nOption: appMode (1)\n"
       "Option: appType (Premium)\nOption: policyXML (p)\nOption: PELL \n"
       "Option: Keychain path (k) \nOption: No Strip Extensions \n"
       "Option: Use network only lib \nOption: ADAL Client ID (c) \n"
       "Option: ADAL NSG Resource ( r) \n"},
      {{"Sign", "-reSign", "maybe", "-wexResign", "YES", "-upgrade"},
       "Option: resign (maybe)\nOption: wexResign (YES)\nOption: Upgrade \n"},
      {{"SetInfo", "-embedBundle", "b"}, "Option: embed bundle \n"},
      {{"SdkPrep", "-packageId", "\"g\"", "-entitlements", "/e", "-appIdPrefix", "T", "-appType",
        "x"},
       "Option: packageId  (g)\nOption: entitlements (/e)\nOption: appIdPrefix (T)\n"
       "Option: appType (x)\nINVALID appType value x \n"},
      {{"Wrap", "-Cert", "-IN"}, "Found dup -INFound dup -IN"},
      {{"Wrap", "-Cert", "-help"}, "Found dup -help"},
  };
  for (const Case& c : cases) {
    parse(c.words);
    EXPECT_EQ(out_, c.output) << ::testing::PrintToString(c.words);
  }
}

TEST_F(Parser, SetsTheKeychainAtOnce) {
  EXPECT_FALSE(parse({"Wrap", "-pell", "-keychainPath", "k", "-unknown"}));
  EXPECT_TRUE(keychain_.pellRequestFlag());
  EXPECT_EQ(keychain_.keychainPath(), "k");
}

TEST_F(Parser, ShowsHelpAndUsage) {
  for (const char* word : {"Wrap", "Sign", "SetInfo", "SdkPrep"}) {
    const std::string heading = "\n" + std::string(57, '-') + " \n" + word + " Command \n";
    parse({word, "-logFile", "l", "-HELP", "whatever"});
    EXPECT_FALSE(request_);
    EXPECT_TRUE(processor_.helpShown());
    EXPECT_FALSE(error_.isSet());
    EXPECT_THAT(log_, HasSubstr(heading));

    parse({word, "-unknown"});
    EXPECT_FALSE(processor_.helpShown());
    ::testing::internal::CaptureStderr();
    processor_.printCommandUsage();
    EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr(heading));
  }
  // Of several words, Wrap comes first.
  parse({"SetInfo", "wrap"});
  ::testing::internal::CaptureStderr();
  processor_.printCommandUsage();
  EXPECT_THAT(::testing::internal::GetCapturedStderr(), HasSubstr("\nWrap Command \n"));
  parse({"GetInfo"});
  ::testing::internal::CaptureStdout();
  processor_.printCommandUsage();
  EXPECT_THAT(
      ::testing::internal::GetCapturedStdout(),
      AllOf(StartsWith("\n " + std::string(66, '-') +
                       " \nUsage: Tovrek [ Wrap | Sign | "
                       "SetInfo | GetInfo ] -Cert"),
            HasSubstr("LEVEL\n\nFull help of Wrap script, with example \n----"),
            HasSubstr("\n    Tovrek SetInfo -in \""), HasSubstr("\n    Tovrek Sign -Cert \""),
            EndsWith("\"\n" + std::string(66, '-') + " \n\n")));
}

TEST_F(Parser, AnUnknownOptionOfSdkPrepIsLoggedToo) {
  parse({"SdkPrep", "-x"});
  EXPECT_THAT(log_, EndsWith(" " + error_.text() + "\n"));
  parse({"SetInfo", "-x"});
  EXPECT_THAT(log_, IsEmpty());
}

TEST_F(Parser, AsksForTheToolsBeforeAnyArgument) {
  test::ScriptedHostRoot bare;
  bare.addFile("/System/Library/CoreServices/SystemVersion.plist",
               "<plist version=\"1.0\"><dict><key>ProductVersion</key><string>10.8</string></dict>"
               "</plist>");
  bare.addTool("pkgutil", "exit 1");
  bare.addTool("xcode-select", "exit 0");
  EXPECT_EQ(refusal({"Wrap", "-help"}),
            "You may need to install the command line tools. Please visit "
            "https://developer.apple.com/downloads .");
  EXPECT_THAT(log_, EndsWith("  Returning as no command line tools are installed\n"));
  bare.addFile("/System/Library/CoreServices/SystemVersion.plist",
               "<plist version=\"1.0\"><dict><key>ProductVersion</key><string>10.9</string></dict>"
               "</plist>");
  EXPECT_EQ(refusal({"Wrap", "-help"}),
            "You may need to install the command line tools. We have invoked the install of "
            "command line tool please select INSTALL and proceed.");
  EXPECT_THAT(bare.allCalls(), ::testing::Contains("xcode-select|--install"));
}

TEST(CommandWords, AreAsTheOldCheckKnowsThem) {
  EXPECT_TRUE(CommandLineProcessor::checkForCommandParam("wrap"));
  EXPECT_TRUE(CommandLineProcessor::checkForCommandParam("GETINFO"));
  EXPECT_FALSE(CommandLineProcessor::checkForCommandParam("SdkPrep"));
  EXPECT_FALSE(CommandLineProcessor::checkForCommandParam(""));
}

}  // namespace
}  // namespace tovrek
