#include "converter/entitlements.h"

#include <unistd.h>

#include "converter/bundle_identifier.h"
#include "formats/entitlement_keys.h"
#include "tests/converter/ConverterTest.h"
#include "tests/support/matchers.h"

namespace tovrek::test {
namespace {

using namespace entitlement;

PlistValue list(const std::vector<std::string>& texts) {
  return PlistValue::Array(texts.begin(), texts.end());
}

PlistDictionary dictionary(std::vector<PlistDictionary::Entry> entries) {
  PlistDictionary result;
  for (auto& [key, value] : entries) result.set(key, std::move(value));
  return result;
}

class Entitlements : public ConverterTest {
 protected:
  Entitlements() {
    request.replacementBundleID = "com.example.demo";
    appIsNotSigned();
  }
  void appIsNotSigned() { host.addTool("codesign", "exit 1"); }
  void appIsSignedWith(const PlistDictionary& entitlements) {
    const std::string old = write("old.plist", serializePlist(entitlements, PlistFormat::kXml));
    host.addTool("codesign", "cp '" + old + "' \"${3#:}\"");
  }
  bool generate(const PlistDictionary& profileEntitlements) {
    error.clear();
    return generateNewEntitlement(run(), &path, dictionary({{"Entitlements", profileEntitlements}}),
                                  folder.path(), app(), &error);
  }
  PlistDictionary generated(const PlistDictionary& profileEntitlements) {
    EXPECT_TRUE(generate(profileEntitlements)) << error.text();
    return readPlistDictionary(path).value_or(PlistDictionary());
  }

  std::string path;
};

TEST_F(Entitlements, OfVariousProfilesAndSignatures) {
  const struct {
    const char* name;
    bool upgrade;
    std::optional<PlistDictionary> old;
    PlistDictionary profile, expected;
  } cases[] = {
      {"explicit profile, app not signed",
       false,
       {},
       dictionary({{kApplicationIdentifier, "TEAMAAAAAA.com.example.demo"},
                   {kTeamIdentifier, "TEAMAAAAAA"}}),
       dictionary({{kApplicationIdentifier, "TEAMAAAAAA.com.example.demo"},
                   {kTeamIdentifier, "TEAMAAAAAA"},
                   {kKeychainGroups, list({"TEAMAAAAAA.com.example.demo",
                                           "TEAMAAAAAA.com.orvane.wex", "TEAMAAAAAA.*"})}})},
      {"wildcard profile, app not signed: the first wildcard group gives way",
       false,
       {},
       dictionary({{kApplicationIdentifier, "TEAMAAAAAA.*"},
                   {kKeychainGroups, list({"TEAMAAAAAA.a", "TEAMAAAAAA.*", "TEAMAAAAAA.b.*"})}}),
       dictionary(
           {{kApplicationIdentifier, "TEAMAAAAAA.com.example.demo"},
            {kKeychainGroups, list({"TEAMAAAAAA.a", "TEAMAAAAAA.b.*", "TEAMAAAAAA.com.example.demo",
                                    "TEAMAAAAAA.com.orvane.wex"})}})},
      {"wildcard profile of a company, upgrade: only the star goes",
       true,
       {},
       dictionary({{kApplicationIdentifier, "TEAMAAAAAA.com.acme.*"}}),
       dictionary({{kApplicationIdentifier, "TEAMAAAAAA.com.acme.com.example.demo"},
                   {kKeychainGroups,
                    list({"TEAMAAAAAA.com.acme.com.example.demo", "TEAMAAAAAA.com.orvane.wex"})}})},
      {"old groups move to the new team, and so does all else that names the old one", false,
       dictionary({{kApplicationIdentifier, "OLDPREFIX1.com.example.demo"},
                   {kKeychainGroups, list({"OLDPREFIX1.com.example.demo", "OLDPREFIX1.shared"})},
                   {kAssociatedDomains, list({"applinks:OLDPREFIX1.example.com"})}}),
       dictionary({{kApplicationIdentifier, "TEAMAAAAAA.*"},
                   {kKeychainGroups, list({"TEAMAAAAAA.*"})},
                   {kAssociatedDomains, list({"*"})}}),
       dictionary({{kApplicationIdentifier, "TEAMAAAAAA.com.example.demo"},
                   {kAssociatedDomains, list({"applinks:TEAMAAAAAA.example.com"})},
                   {kKeychainGroups,
                    list({"TEAMAAAAAA.com.example.demo", "TEAMAAAAAA.shared",
                          "TEAMAAAAAA.com.example.demo", "TEAMAAAAAA.com.orvane.wex"})}})},
      {"old groups without the app's own", false,
       dictionary({{kApplicationIdentifier, "OLDPREFIX1.com.example.demo"},
                   {kKeychainGroups, list({"OLDPREFIX1.shared"})}}),
       dictionary(
           {{kApplicationIdentifier, "TEAMAAAAAA.*"}, {kKeychainGroups, list({"TEAMAAAAAA.*"})}}),
       dictionary({{kApplicationIdentifier, "TEAMAAAAAA.com.example.demo"},
                   {kKeychainGroups, list({"TEAMAAAAAA.shared", "TEAMAAAAAA.com.example.demo",
                                           "TEAMAAAAAA.com.orvane.wex"})}})},
      {"old domains do not enter a profile without them", false,
       dictionary({{kAssociatedDomains, list({"applinks:example.com"})}}),
       dictionary({{kApplicationIdentifier, "TEAMAAAAAA.*"}}),
       dictionary({{kApplicationIdentifier, "TEAMAAAAAA.com.example.demo"},
                   {kKeychainGroups,
                    list({"TEAMAAAAAA.com.example.demo", "TEAMAAAAAA.com.orvane.wex"})}})},
      {"app groups are keychain groups too",
       false,
       {},
       dictionary(
           {{kApplicationIdentifier, "TEAMAAAAAA.*"}, {kAppGroups, list({"group.com.acme"})}}),
       dictionary(
           {{kApplicationIdentifier, "TEAMAAAAAA.com.example.demo"},
            {kAppGroups, list({"group.com.acme"})},
            {kKeychainGroups, list({"TEAMAAAAAA.com.example.demo", "TEAMAAAAAA.com.orvane.wex",
                                    "TEAMAAAAAA.group.com.acme"})}})},
      {"an app without iCloud loses the profile's",
       false,
       {},
       dictionary({{kApplicationIdentifier, "TEAMAAAAAA.*"},
                   {kICloudContainers, list({"iCloud.a"})},
                   {kICloudServices, "*"},
                   {kICloudEnvironment, list({"Production"})}}),
       dictionary({{kApplicationIdentifier, "TEAMAAAAAA.com.example.demo"},
                   {kICloudServices, "*"},
                   {kKeychainGroups,
                    list({"TEAMAAAAAA.com.example.demo", "TEAMAAAAAA.com.orvane.wex"})}})},
      {"an app with iCloud keeps the profile's containers and its own services", false,
       dictionary({{kICloudContainers, list({"iCloud.b"})}, {kICloudServices, list({"CloudKit"})}}),
       dictionary({{kApplicationIdentifier, "TEAMAAAAAA.*"},
                   {kICloudContainers, list({"iCloud.a"})},
                   {kICloudServices, "*"},
                   {kICloudEnvironment, "Production"}}),
       dictionary({{kApplicationIdentifier, "TEAMAAAAAA.com.example.demo"},
                   {kICloudContainers, list({"iCloud.a"})},
                   {kICloudServices, list({"CloudKit"})},
                   {kKeychainGroups,
                    list({"TEAMAAAAAA.com.example.demo", "TEAMAAAAAA.com.orvane.wex"})}})},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    request.preserveUpgradeCompatibility = c.upgrade;
    removeItem(app() + "/orig-entitlements.plist");
    c.old ? appIsSignedWith(*c.old) : appIsNotSigned();
    const PlistDictionary result = generated(c.profile);
    EXPECT_EQ(result, c.expected) << serializePlist(result, PlistFormat::kXml);
  }
}

TEST_F(Entitlements, AsksForThoseOfTheOldSignature) {
  appIsNotSigned();
  generated(dictionary({{kApplicationIdentifier, "TEAMAAAAAA.*"}}));
  EXPECT_THAT(host.allCalls(app()),
              ElementsAre("codesign|-d|--entitlements|:@/orig-entitlements.plist|@"));
}

// The file that an earlier run left in the app, against what codesign does this time. Like the
// real tool the scripted one writes behind what the file holds.
TEST_F(Entitlements, EarlierFileServesOnlyWhenTheSignatureIsGone) {
  const auto text = [](const char* group) {
    return serializePlist(dictionary({{kKeychainGroups, list({group})}}), PlistFormat::kXml);
  };
  const std::string stale = text("X.stale");
  const std::string fresh = write("fresh.plist", text("X.fresh"));
  const std::string writes = "cat '" + fresh + "' >> \"${3#:}\"";
  const struct {
    const char* name;
    std::string present, codesign, left;
    const char* firstGroup;  // the first group of the result
  } cases[] = {
      {"signed", stale, writes, text("X.fresh"), "X.fresh"},
      {"signature gone", stale, "exit 1", stale, "X.stale"},
      {"signature damaged, the tool fails half way", stale, writes + "; exit 1", stale, "X.stale"},
      {"signed without entitlements", stale, "exit 0", "", "TEAMAAAAAA.com.example.demo"},
      {"no signature, damaged file", stale + stale, "exit 1", "", "TEAMAAAAAA.com.example.demo"},
      {"the tool writes no property list", stale, "echo oops >> \"${3#:}\"", "",
       "TEAMAAAAAA.com.example.demo"},
  };
  const std::string file = app() + "/orig-entitlements.plist";
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    write("Demo.app/orig-entitlements.plist", c.present);
    host.addTool("codesign", c.codesign);
    const auto result = generated(dictionary({{kApplicationIdentifier, "TEAMAAAAAA.*"}}));
    EXPECT_EQ(arrayForKey(result, kKeychainGroups)->front(), PlistValue(c.firstGroup));
    EXPECT_EQ(isPlainFile(file) ? contentsOf(file) : "", c.left);
  }
}

TEST_F(Entitlements, OldSignatureIsNotWrittenThroughALink) {
  const std::string outside = write("outside", "untouched");
  ASSERT_EQ(::symlink(outside.c_str(), (app() + "/orig-entitlements.plist").c_str()), 0);
  appIsSignedWith(dictionary({{kApplicationIdentifier, "OLDPREFIX1.x"}}));
  generated(dictionary({{kApplicationIdentifier, "TEAMAAAAAA.*"}}));
  EXPECT_EQ(contentsOf(outside), "untouched");
}

TEST_F(Entitlements, WarnsOfWhatTheProfileLacks) {
  appIsSignedWith(dictionary({{"beta-reports-active", true}}));
  generated(
      dictionary({{kApplicationIdentifier, "TEAMAAAAAA.*"}, {kTeamIdentifier, "TEAMAAAAAA"}}));
  EXPECT_FALSE(error.isSet()) << error.text();
  appIsSignedWith(dictionary({{"com.apple.developer.healthkit", true}}));
  generated(dictionary({{kApplicationIdentifier, "TEAMAAAAAA.*"}}));
  EXPECT_THAT(error.text(), HasSubstr("your provisioning profile does not include entitlements"));
}

TEST_F(Entitlements, FailuresOfTheProfile) {
  EXPECT_FALSE(generateNewEntitlement(run(), &path, std::nullopt, folder.path(), app(), &error));
  EXPECT_FALSE(error.isSet());
  EXPECT_FALSE(generateNewEntitlement(run(), &path, PlistDictionary(), "/nowhere", app(), &error));
  EXPECT_EQ(error.text(), "ERROR: Failed to decode provisioning profile.");
  EXPECT_FALSE(GenerateEntitlement(run(), path, "/nowhere", app(), &error));
  EXPECT_EQ(error.text(), "ERROR: Failed to read provisioning profile.");
  EXPECT_FALSE(
      generateNewEntitlement(run(), &path, PlistDictionary(), folder.path(), app(), &error));
  EXPECT_EQ(error.text(), "ERROR: Provisioning profile is missing entitlement data.");
  EXPECT_FALSE(generate(dictionary({{kApplicationIdentifier, "TEAMAAAAAA.org.other"}})));
  EXPECT_THAT(error.text(), HasSubstr("is specific to <org.other>"));
}

TEST_F(Entitlements, BundleIdentifierChanges) {
  write("Payload/a.txt", "");
  write("Payload/Demo.APP/Info.plist", infoPlist("com.example.old"));
  const std::string payload = folder.file("Payload");
  EXPECT_TRUE(doAppBundleIDChange("com.example.new", payload));
  const std::string plist = payload + "/Demo.APP/Info.plist";
  EXPECT_EQ(contentsOf(plist).substr(0, 6), "bplist");
  const auto info = readPlistDictionary(plist).value();
  EXPECT_EQ(*stringForKey(info, "CFBundleIdentifier"), "com.example.new");
  EXPECT_EQ(*stringForKey(info, "WEXCFBundleIdentifier"), "com.example.old");
  EXPECT_EQ(*stringForKey(info, "CFBundleExecutable"), "Demo");

  EXPECT_FALSE(doAppBundleIDChange(std::nullopt, payload));
  EXPECT_FALSE(doAppBundleIDChange("x", ""));
  removeItem(plist);
  EXPECT_FALSE(doAppBundleIDChange("x", payload));
}

TEST_F(Entitlements, BundleIdentifierOfALinkedAppStays) {
  createDirectories(folder.file("Payload"));
  ASSERT_EQ(::symlink(app().c_str(), folder.file("Payload/A.APP").c_str()), 0);
  EXPECT_FALSE(doAppBundleIDChange("x", folder.file("Payload")));
  EXPECT_EQ(contentsOf(app() + "/Info.plist"), infoPlist("com.example.demo"));
}

TEST_F(Entitlements, ManagementGroupIsRequired) {
  const auto check = [&](const PlistDictionary& entitlements) {
    error.clear();
    return checkWexKeychainEntitlementInFile(
        log(), write("e.plist", serializePlist(entitlements, PlistFormat::kXml)), &error);
  };
  EXPECT_TRUE(
      check(dictionary({{kKeychainGroups, list({"$(AppIdentifierPrefix)com.orvane.wex"})}})));
  EXPECT_FALSE(check(dictionary({{kKeychainGroups, list({"T.com.orvane"})}})));
  EXPECT_THAT(error.text(), HasSubstr("keychain access group com.orvane.wex for this app."));
}

}  // namespace
}  // namespace tovrek::test
