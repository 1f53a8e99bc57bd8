// Entitlements, profiles, access groups and the search for Intune.
#include <gtest/gtest.h>

#include "host/files.h"
#include "package/binary_symbols.h"
#include "package/embedded_profile.h"
#include "package/intune_detection.h"
#include "package/keychain_groups.h"
#include "package/signed_entitlements.h"
#include "tests/package/package_testing.h"
#include "tests/support/ScriptedHostRoot.h"
#include "tests/support/matchers.h"

namespace tovrek {
namespace {

constexpr const char* kDeclaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";

std::string plist(const std::string& entries) {
  return kDeclaration + ("<plist version=\"1.0\"><dict>" + entries) + "</dict></plist>";
}
std::string groups(const std::string& name) {
  return plist("<key>keychain-access-groups</key><array><string>other</string><string>" + name +
               "</string></array>");
}
std::string printing(const std::string& text) {
  return "cat <<'END'\n" + text + "\nEND";
}

class Signatures : public testing::Test {
 protected:
  test::TemporaryFolder folder_;
  test::ScriptedHostRoot host_;
  test::LogCapture log_;
};

TEST_F(Signatures, ReadsSignedEntitlements) {
  const auto team = [&] {
    return ReadEmbeddedEntitlements("/x/My App.app", "team", log_.logger());
  };
  const std::string signedText = plist("<key>team</key><string>ABC</string>");
  host_.addTool("codesign", printing(signedText) + "\necho noise >&2");
  EXPECT_THAT(team(), Optional(PlistValue("ABC")));
  EXPECT_THAT(host_.calls("codesign"), ElementsAre("-d --entitlements :- /x/My App.app"));
  EXPECT_EQ(ReadEmbeddedEntitlements("/x", "none", log_.logger()), std::nullopt);
  EXPECT_THAT(signedEntitlements("/x"), Optional(testing::SizeIs(1)));
  EXPECT_EQ(log_.text(), "");
  for (const std::string& script :
       {printing(signedText) + "\nexit 1", std::string("echo nonsense"), std::string("true"),
        printing(std::string(kDeclaration) + "<plist version=\"1.0\"><array/></plist>")}) {
    host_.addTool("codesign", script);
    EXPECT_EQ(team(), std::nullopt) << script;
    const std::string told = log_.text();
    EXPECT_EQ(signedEntitlements("/x"), std::nullopt) << script;
    EXPECT_EQ(log_.text(), told);
  }
}

// What codesign complains of is the user's to see only where something is made of the answer.
TEST_F(Signatures, ShowsOrHidesComplaints) {
  host_.addTool("codesign", "echo unsigned >&2; exit 1");
  testing::internal::CaptureStderr();
  EXPECT_EQ(signedEntitlements("/x"), std::nullopt);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  testing::internal::CaptureStderr();
  EXPECT_EQ(ReadEmbeddedEntitlements("/x", "team", log_.logger()), std::nullopt);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "unsigned\n");
  EXPECT_TRUE(log_.holds("Code signature may not exist."));
}

TEST_F(Signatures, ReadsTheProfilesPropertyList) {
  const std::string envelope("0\x82\x00\xff</plist>", 12);
  const std::string inner = plist(
      "<key>Name</key><string>P</string><key>Entitlements</key><dict>"
      "<key>application-identifier</key><string>T.a.b</string></dict>"
      "<key>ExpirationDate</key><date>2100-01-02T03:04:05Z</date>");
  const std::string path = folder_.write("p", envelope + inner + "</plist>" + envelope);
  const auto read = [&](const std::string& file, const char* keyPath) {
    return ReadEmbeddedProfile(file, keyPath, log_.logger());
  };
  EXPECT_THAT(read(path, "Entitlements.application-identifier"), Optional(PlistValue("T.a.b")));
  const std::optional<PlistValue> expires = read(path, "ExpirationDate");
  ASSERT_TRUE(expires && expires->date() != nullptr);
  EXPECT_EQ(expires->date()->secondsSince1970, 4102542245.0);
  for (const char* missing : {"None", "Name.x", "Entitlements.x", "Entitlements.", ""}) {
    EXPECT_EQ(read(path, missing), std::nullopt) << missing;
  }
  for (const std::string& broken :
       {std::string(), inner.substr(inner.find("<plist")), inner.substr(0, inner.size() - 1),
        std::string(kDeclaration) + "</plist>", "</plist>" + std::string(kDeclaration)}) {
    EXPECT_EQ(read(folder_.write("broken", broken), "Name"), std::nullopt) << broken;
  }
  EXPECT_EQ(read(folder_.file("none"), "Name"), std::nullopt);
}

TEST_F(Signatures, ChecksAccessGroups) {
  const std::string path = folder_.write("e", groups("TEAM.com.orvane.wex"));
  ErrorText error;
  EXPECT_TRUE(checkKeychainAccessGroup("com.orvane.wex", path, &error, log_.logger()));
  EXPECT_FALSE(checkKeychainAccessGroup("com.orvane.wexx", path, &error, log_.logger()));
  EXPECT_FALSE(error.isSet());
  EXPECT_FALSE(checkKeychainAccessGroup("g", folder_.file("none"), &error, log_.logger()));
  EXPECT_EQ(error.text(), "CheckKeychainAccessGroup: Entitlements file not found.");
  const std::string text = folder_.write("t", "text");
  EXPECT_FALSE(checkKeychainAccessGroup("g", text, &error, log_.logger()));
  EXPECT_EQ(error.text(), "ERROR: unable to read " + text);
  for (const std::string& odd :
       {plist(""), plist("<key>keychain-access-groups</key><string>g</string>"),
        plist("<key>keychain-access-groups</key><array><integer>1</integer></array>")}) {
    EXPECT_FALSE(checkKeychainAccessGroup("g", folder_.write("o", odd), nullptr, log_.logger()));
  }
  host_.addTool("codesign", printing(groups("TEAM.g")));
  EXPECT_TRUE(checkKeychainAccessGroupInAppBundlePath("g", "/x", log_.logger()));
  EXPECT_FALSE(checkKeychainAccessGroupInAppBundlePath("none", "/x", log_.logger()));
}

TEST_F(Signatures, DetectsIntuneByAnyOfFiveSigns) {
  const std::string group = "TEAM.com.microsoft.intune.mam";
  struct Case {
    const char* what;
    const char* item;          // made in the app
    std::string entitlements;  // of the file
    std::string signedOnes;
    const char* symbols;
    bool found;
    bool asksTools;
  };
  for (const Case& c : {
           Case{"nothing", "x", plist(""), plist(""), "_m\xc3\xa4in\xf0\x9f\x98\x80", false, true},
           Case{"framework", "Frameworks/IntuneMAM.framework/x", "", "", "", true, false},
           Case{"framework that is a file", "Frameworks/IntuneMAM.framework", "", "", "", false,
                true},
           Case{"resources", "IntuneMAMResources.bundle/x", "", "", "", true, false},
           Case{"entitlements file", "x", groups(group), "", "", true, false},
           Case{"signature", "x", "", groups(group), "", true, true},
           Case{"symbols", "x", "", plist(""), "_a\n_OBJC_CLASS_$_IntuneMAMEnrollmentManager\n_b",
                true, true},
       }) {
    SCOPED_TRACE(c.what);
    test::TemporaryFolder apps;
    test::ScriptedHostRoot tools;
    apps.write("My.app/My", "binary");
    apps.write("My.app/" + std::string(c.item), "");
    tools.addTool("codesign", printing(c.signedOnes));
    tools.addTool("nm", printing(c.symbols));
    std::optional<std::string> entitlements;
    if (!c.entitlements.empty()) entitlements = apps.write("e", c.entitlements);
    EXPECT_EQ(detectIntuneInAppBundle(apps.file("My.app"), entitlements, log_.logger()), c.found);
    EXPECT_EQ(!tools.calls("codesign").empty(), c.asksTools);
    if (std::string(c.what) == "symbols") {
      EXPECT_THAT(tools.calls("nm"), ElementsAre("-j " + apps.file("My.app/My")));
    }
  }
  // Characters of the first case, not bytes; the one beyond the first 65,536 is two, as everywhere.
  EXPECT_THAT(log_.text(), HasSubstr("DetectIntune: Symbols: L8, terminatedStatus: 0\n"));
  EXPECT_FALSE(detectIntuneInAppBundle("", std::nullopt, log_.logger()));
}

TEST_F(Signatures, ReportsTheSymbolToolsStatus) {
  host_.addTool("nm", "echo partial; exit 3");
  int status = 0;
  EXPECT_EQ(getSymbolsFromBinaryPath("/x/a b", &status), "partial\n");
  EXPECT_EQ(status, 3);
  EXPECT_THAT(host_.calls("nm"), ElementsAre("-j /x/a b"));
  // What was ended half-way has not answered.
  host_.addTool("nm", "echo partial; kill -9 $$");
  bool answered = true;
  ErrorText error;
  getSymbolsFromBinaryPath("/x/a", &status, &answered, &error);
  EXPECT_FALSE(answered);
  EXPECT_EQ(error.text(), "Failed to execute nm with exit code: 9");
}

}  // namespace
}  // namespace tovrek
