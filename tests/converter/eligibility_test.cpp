#include "converter/eligibility.h"

#include <fmt/format.h>

#include <functional>

#include "converter/inspection.h"
#include "converter/library_check.h"
#include "tests/converter/ConverterTest.h"
#include "tests/support/matchers.h"

namespace tovrek::test {
namespace {

class Eligibility : public ConverterTest {
 protected:
  // Stand-ins that print a listing for each option and end with a status.
  void otool(const std::string& loadCommands, const std::string& classes = "", int status = 0) {
    host.addTool("otool", fmt::format("case $1 in -l) cat <<'E'\n{}\nE\n;; -o) cat <<'E'\n{}\nE\n;;"
                                      " esac; exit {}",
                                      loadCommands, classes, status));
  }
  void symbols(const std::string& names, int status = 0) {
    host.addTool("nm", fmt::format("echo '{}'; exit {}", names, status));
  }
};

TEST_F(Eligibility, AsksOtoolAboutTheExecutable) {
  otool("nothing");
  verifyIfApplicationIsAlreadyWrapped(log(), bundle(), &error);
  verifyIfApplicationIsAppStoreApp(log(), bundle(), nullptr);
  verifyIfAppBundleIsAlreadyWrapped(log(), bundle(), nullptr);
  EXPECT_THAT(host.allCalls(app()), ElementsAre("otool|-l|@/Demo", "otool|-l|@/Demo",
                                                "otool|-l|@/Demo", "otool|-o|@/Demo"));
}

TEST_F(Eligibility, NamesInBundlesStartNoProgram) {
  // A backslash stays in front of the apostrophe, inside double quotes.
  for (const auto& [name, seen] :
       {std::pair<std::string, std::string>{"a\"; touch pwned; \"", "a\"; touch pwned; \""},
        {"$(touch pwned)`touch pwned`$HOME", "$(touch pwned)`touch pwned`$HOME"},
        {"back\\slash", "back\\slash"},
        {"Bob's", "Bob\\'s"}}) {
    PlistDictionary info;
    info.set("CFBundleExecutable", name);
    write("Demo.app/Info.plist", serializePlist(info, PlistFormat::kXml));
    write("Demo.app/" + name, "executable");
    otool("cryptid 0");
    host.forgetCalls();
    verifyIfApplicationIsAppStoreApp(log(), bundle(), &error);
    EXPECT_THAT(host.allCalls(app()), ElementsAre("otool|-l|@/" + seen));
    EXPECT_FALSE(fileExists("pwned"));
  }
}

TEST_F(Eligibility, AppStoreAppHasNoUnencryptedSlice) {
  const struct {
    const char* listing;
    int status;
    bool passes;
  } cases[] = {
      {"  cryptid 1\n  cryptid 0", 0, true}, {"cryptid     0", 0, true}, {"cryptid 1", 0, false},
      {"no such command", 0, false},         {"cryptid 0", 1, true},  // grep's status counts
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.listing);
    otool(c.listing, "", c.status);
    error.clear();
    EXPECT_EQ(verifyIfApplicationIsAppStoreApp(log(), bundle(), &error), c.passes);
    EXPECT_EQ(error.text(),
              c.passes ? "" : "ERROR: The app (" + app() + "/Demo) is an AppStore app.");
  }
}

TEST_F(Eligibility, SilenceOfAToolIsNoAnswer) {
  symbols("_main");
  for (const auto& [script, status] :
       {std::pair<std::string, int>{"kill -9 $$", 137}, {"exit 127", 127}, {"exit 126", 126}}) {
    SCOPED_TRACE(script);
    const std::string text = fmt::format("Failed to execute otool with exit code: {}", status);
    host.addTool("otool", script);
    BundleInspection found;
    const std::vector<std::function<bool()>> questions = {
        [&] { return verifyIfApplicationIsAlreadyWrapped(log(), bundle(), &error).has_value(); },
        [&] { return verifyIfApplicationIsAppStoreApp(log(), bundle(), &error).has_value(); },
        [&] { return checkIfAppBundle(context, bundle(), &found, &error); }};
    for (const auto& question : questions) {
      error.clear();
      EXPECT_FALSE(question());
      EXPECT_EQ(error.text(), text);
    }
  }
  otool("cryptid 0");
  host.addTool("nm", "exit 127");
  BundleInspection found;
  EXPECT_FALSE(checkIfAppBundle(context, bundle(), &found, &error));
  EXPECT_EQ(error.text(), "Failed to execute nm with exit code: 127");
}

TEST_F(Eligibility, WrappedAppIsRefused) {
  otool("name @executable_path/OrvaneDylib.bundle/OrvaneDylib.dylib");
  EXPECT_EQ(verifyIfApplicationIsAlreadyWrapped(log(), bundle(), &error), true);
  EXPECT_EQ(error.text(), "ERROR: This app is already wrapped, and cannot be re-wrapped.");
  otool("name @executable_path/OrvaneDylib.bundle/OrvaneDylib.dylib", "", 1);
  EXPECT_EQ(verifyIfApplicationIsAlreadyWrapped(log(), bundle(), nullptr), false);
}

TEST_F(Eligibility, LaunchHook) {
  otool("", "orvApplication:willFinishLaunchingWithOptions:");
  EXPECT_FALSE(verifyIfAppBundleIsAlreadyWrapped(log(), bundle(), &error));
  EXPECT_EQ(error.text(),
            "ERROR: This app is already linked against the TelvoSDK, and cannot be wrapped.");
  EXPECT_TRUE(verifyIfApplicationIsLinkedWithStaticWEXSDK(log(), bundle(), nullptr));
  otool("", "application:willFinishLaunchingWithOptions:");
  EXPECT_TRUE(verifyIfAppBundleIsAlreadyWrapped(log(), bundle(), nullptr));
  EXPECT_FALSE(verifyIfApplicationIsLinkedWithStaticWEXSDK(log(), bundle(), nullptr));
}

TEST_F(Eligibility, SdkFrameworks) {
  const struct {
    const char* listing;
    bool linked;
    FrameworkNames found;
  } cases[] = {
      {"/WEX.framework/WEX", true, {"WEX.framework"}},
      {"/WEXNetworkOnly.framework/", true, {"WEXNetworkOnly.framework"}},
      {"/wex.framework/", false, {}},
      {"/ORVMAMCore.framework/", false, {"ORVMAMCore.framework"}},
      {"/ORVMAMAppCore.framework/", false, {"ORVMAMAppCore.framework"}},
      {"/ORVMAMAppCore.framework/ /ORVMAMCore.framework/",
       true,
       {"ORVMAMCore.framework", "ORVMAMAppCore.framework"}},
      {"/WexFrameworkLoader.framework/ /WEX.framework/",
       true,
       {"WEX.framework", "WexFrameworkLoader.framework"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.listing);
    otool(c.listing);
    FrameworkNames found;
    EXPECT_EQ(verifyIfApplicationIsLinkedWithMDKSDK(log(), bundle(), &found, nullptr), c.linked);
    EXPECT_EQ(found, c.found);
  }
}

TEST_F(Eligibility, InspectionOfAnSdkApp) {
  otool("/ORVMAMCore.framework/ /ORVMAMAppCore.framework/ /WexFrameworkLoader.framework/");
  symbols("_FINGERPRINT_premain");
  write("Demo.app/OrvaneDylib.bundle/OrvaneDylib.dylib", "");
  BundleInspection found;
  found.hasMAMSDKFrameworks = false;
  EXPECT_TRUE(checkIfAppBundle(context, bundle(), &found, &error));
  EXPECT_TRUE(found.hasWEXSDKFramework && found.hasOpenSSLFIPSModule && found.hasOrvaneDylib &&
              found.hasMAMSDKFrameworks && found.hasDualModeFrameworks);
  EXPECT_FALSE(found.hasDefaultPoliciesXML);
  EXPECT_EQ(found.debugString,
            "\n\nApp has: WEXSymbols?0 WEXSDKFrameworkFound?1 OpenSSLFIPSModuleFound?1 "
            "DefaultPoliciesXML?0 OrvaneDylib?1 DualModeFrameworkFound?0 ORVMAMFrameworksFound?0\n"
            "WARNING: App will not work as expected when run in Premium/AppSpecific mode.\n");
  // A second look reports what the first one found.
  EXPECT_TRUE(checkIfAppBundle(context, bundle(), &found, &error));
  EXPECT_THAT(found.debugString, HasSubstr("DualModeFrameworkFound?1 ORVMAMFrameworksFound?1\n"));
}

TEST_F(Eligibility, InspectionOfOtherApps) {
  otool("/usr/lib/libSystem.B.dylib");
  symbols("_main", 1);
  write("Demo.app/default_policies.xml", "");
  BundleInspection found;
  EXPECT_TRUE(checkIfAppBundle(context, bundle(), &found, &error));
  EXPECT_FALSE(found.hasWEXSDKFramework || found.hasOpenSSLFIPSModule || found.hasOrvaneDylib);
  EXPECT_TRUE(found.hasDefaultPoliciesXML);
  EXPECT_THAT(found.debugString, HasSubstr("\noutputStr _main\n terminatedStatus 1\n"));

  // The markers count without any framework, the fingerprint only with one.
  symbols("_OrvSingleSignOn _FINGERPRINT_premain");
  EXPECT_TRUE(checkIfAppBundle(context, bundle(), &found, &error));
  EXPECT_TRUE(found.hasWEXSDKFramework);
  EXPECT_FALSE(found.hasOpenSSLFIPSModule);
}

TEST_F(Eligibility, ForeignApps) {
  write("Demo.app/lib/Mono.dll", "");
  write("Demo.app/Mono.DLL", "");
  EXPECT_TRUE(verifyIfItNotANativeiOSApp(app(), &error));
  EXPECT_FALSE(doesApplicationSupportAdobeAir(app(), &error));
  EXPECT_FALSE(error.isSet());
  write("Demo.app/Mono.dll", "");
  EXPECT_FALSE(verifyIfItNotANativeiOSApp(app(), &error));
  EXPECT_THAT(error.text(), HasSubstr("not to be native iOS app , it could be"));
  write("Demo.app/META-INF/AIR/application.xml", "");
  EXPECT_TRUE(doesApplicationSupportAdobeAir(app(), &error));
  EXPECT_THAT(error.text(), HasSubstr("Adobe Air"));
}

TEST_F(Eligibility, DuplicateCertificates) {
  const struct {
    const char* listing;
    int status;
    const char* certificate;
    bool duplicate;
  } cases[] = {
      {"  1) AA \"Acme\"\n  2) BB \"Acme Two\"", 0, "Acme", true},
      {"  1) AA \"Acme\"\n  2) BB \"acme\"", 0, "Acme", false},
      {"  1) AA \"aaa\"", 0, "aa", false},  // matches do not overlap
      {"Acme Acme", 1, "Acme", false},
      {"Acme Acme", 0, "", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.listing);
    host.addTool("security", fmt::format("echo '{}'; exit {}", c.listing, c.status));
    error.clear();
    EXPECT_EQ(checkForDuplicateCertificates(log(), c.certificate, &error), c.duplicate);
    EXPECT_EQ(error.isSet(), c.duplicate);
  }
  EXPECT_THAT(host.allCalls(), ::testing::Each("security|find-identity|-v|-p|codesigning"));
}

TEST_F(Eligibility, ShippedLibraryNeedsTheMakersSignature) {
  const std::string path = write("Data/OrvaneDylib.dylib", "");
  const struct {
    const char* script;
    const char* text;
  } cases[] = {
      {"echo 'Authority=iPhone Distribution: Orvane Systems, Inc.' >&2", ""},
      {"echo 'Authority=iPhone Distribution: Orvane Systems, Inc.'",  // not on standard output
       "Failed to validate that dylib is signed by Orvane."},
      {"echo 'Authority=iPhone Developer: Orvane Systems, Inc.' >&2",
       "Failed to validate that dylib is signed by Orvane."},
      {"printf '\\377' >&2", "Failed to allocate memory."},
      {"exit 1", "Failed to execute codesign-verifyOrvaneDylib with exit code: 1"},
  };
  for (const auto& c : cases) {
    host.addTool("codesign", c.script);
    error.clear();
    EXPECT_EQ(checkOrvaneDylib(path, &error), c.text[0] == '\0');
    EXPECT_EQ(error.text(), c.text);
  }
  EXPECT_THAT(host.allCalls(folder.path()),
              ::testing::Each("codesign|-dvvv|@/Data/OrvaneDylib.dylib"));
  EXPECT_FALSE(checkOrvaneLoggerDylib("/nowhere", &error));
  EXPECT_EQ(error.text(), "A required file at this location does not exist: /nowhere");
}

}  // namespace
}  // namespace tovrek::test
