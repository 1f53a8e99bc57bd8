#include "profile/ProvisioningProfile.h"

#include <gtest/gtest.h>

#include <cctype>
#include <cstdio>

#include "host/files.h"
#include "tests/support/ScriptedHostRoot.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/matchers.h"
#include "tests/support/openssl_identity.h"
#include "tools/tool_run.h"

namespace tovrek {
namespace {

constexpr char kTeamWarning[] =
    "WARNING: Your provisioning profile does not contain the team identifier entitlement required "
    "for iOS 8.";
constexpr char kCertificateWarning[] =
    "WARNING: Your certificate does not contain the team identifier required for iOS 8.";

const WrapperLogger log("ToolkitLib", std::nullopt);

PlistDictionary entitlementsFor(const std::string& appId) {
  PlistDictionary entitlements;
  entitlements.set("application-identifier", appId);
  return entitlements;
}

TEST(ProfileChecks, MatchesBundleIdentifiers) {
  const std::string notSuitable = " is not suitable for use with wildcard profile <";
  const std::string change =
      ".  Change the bundle indentifier above or choose a different profile.";
  struct Case {
    std::string appId, bundleId;
    bool upgrade;
    std::string error;
  };
  const std::vector<Case> cases = {
      {"TEAMID1234.*", "any.thing", false, ""},
      {"TEAMID1234.com.example.*", "org.com.example.app", false, ""},
      {"TEAMID1234.com.example.*", "com.other.app", false,
       "Bundle identifier <com.other.app>" + notSuitable + "com.example.*>" + change},
      {"TEAMID1234.com.example.*", "com.other.app", true, ""},
      {"TEAMID1234.com.example.*", "com.EXAMPLE.app", false,
       "Bundle identifier <com.EXAMPLE.app>" + notSuitable + "com.example.*>" + change},
      {"TEAMID1234.com.example.app", "com.example.app", false, ""},
      {"TEAMID1234.com.example.app", "com.example.App", true,
       "This provisioning profile is specific to <com.example.app>" + change},
      {"SHORT", "com.example.app", false, "This provisioning profile is specific to <>" + change},
      {"TEAMID1234.%s{}*", "x", false, "Bundle identifier <x>" + notSuitable + "%s{}*>" + change},
  };
  for (const Case& c : cases) {
    ErrorText error;
    EXPECT_EQ(ProvisioningProfile::validateProfileWithPList(entitlementsFor(c.appId), c.bundleId,
                                                            c.upgrade, log, &error),
              c.error.empty())
        << c.appId;
    EXPECT_EQ(error.text(), c.error);
  }
}

TEST(ProfileChecks, WarnsOfDataProtectionOverAnyText) {
  ErrorText error;
  error.set("earlier");
  PlistDictionary entitlements;
  ProvisioningProfile::validateProfileWithDataProtection(entitlements, log, &error);
  entitlements.set("com.apple.developer.default-data-protection", "nsfileprotectionnone");
  ProvisioningProfile::validateProfileWithDataProtection(entitlements, log, &error);
  EXPECT_EQ(error.text(), "earlier");

  entitlements.set("com.apple.developer.default-data-protection", "NSFileProtectionComplete");
  ProvisioningProfile::validateProfileWithDataProtection(entitlements, log, &error);
  EXPECT_EQ(error.text(),
            "WARNING: Data Protection is enabled in mobile profile (NSFileProtectionComplete), "
            "this will prevent app from accessing files when device is locked");
}

TEST(ProfileChecks, WarnsOfAMissingTeamInAnEmptySlotOnly) {
  ErrorText error;
  PlistDictionary entitlements;
  ProvisioningProfile::validateProfileWithTeamIdentifier(entitlements, log, &error);
  EXPECT_EQ(error.text(), kTeamWarning);
  error.set("earlier");
  ProvisioningProfile::validateProfileWithTeamIdentifier(entitlements, log, &error);
  EXPECT_EQ(error.text(), "earlier");
  error.clear();
  entitlements.set("com.apple.developer.team-identifier", "TEAMID1234");
  ProvisioningProfile::validateProfileWithTeamIdentifier(entitlements, log, &error);
  EXPECT_FALSE(error.isSet());
}

// Profiles signed by openssl, decoded by the security program that the toolkit ships.
class SignedProfile : public ::testing::Test {
 protected:
  SignedProfile()
      : hostRoot_("TOVREK_HOST_ROOT", TOVREK_BUILT_FOLDER "/host"),
        dataHome_("XDG_DATA_HOME", folder_.path()) {
    test::IdentityRequest request;
    request.subject = "/CN=" + name_ + "/OU=TEAMID1234";
    identity_ = test::makeIdentity(folder_, "one", request);
    request.subject = "/O=Nameless Works";
    nameless_ = test::makeIdentity(folder_, "two", request);
  }

  PlistDictionary profile() const {
    PlistDictionary entitlements = entitlementsFor("TEAMID1234.com.example.*");
    entitlements.set("com.apple.developer.team-identifier", "INNERTEAM1");
    PlistDictionary profile;
    profile.set("ApplicationIdentifierPrefix", PlistValue::Array{"TEAMID1234", "OTHER"});
    profile.set("TeamIdentifier", PlistValue::Array{"OUTERTEAM1"});
    profile.set("Entitlements", entitlements);
    profile.set("DeveloperCertificates",
                PlistValue::Array{PlistValue::Data{test::derOf(nameless_.certificate)},
                                  PlistValue::Data{"no certificate"},
                                  PlistValue::Data{test::derOf(identity_.certificate)}});
    return profile;
  }

  std::string sign(const std::string& content) const {
    const std::string plain = folder_.write("content", content);
    const std::string path = folder_.file("p.mobileprovision");
    test::runOpenssl({"cms", "-sign", "-nodetach", "-binary", "-in", plain, "-signer",
                      identity_.certificate, "-inkey", identity_.key, "-outform", "DER", "-out",
                      path});
    return path;
  }

  RunContext context;
  const std::string name_ = "iPhone Distribution: \xC3\x85ngstr\xC3\xB6m";
  test::TemporaryFolder folder_;
  test::ScopedEnvironment hostRoot_, dataHome_;
  test::IdentityFiles identity_, nameless_;
};

TEST_F(SignedProfile, GivesCertificatesAndIdentifiers) {
  for (const PlistFormat format : {PlistFormat::kXml, PlistFormat::kBinary}) {
    ProvisioningProfile subject(sign(serializePlist(profile(), format)), context);
    ErrorText error;
    const std::vector<std::string>* labels = subject.getCertificates(&error);
    ASSERT_NE(labels, nullptr) << error.text();
    EXPECT_THAT(*labels, ElementsAre("Nameless Works", name_));
    EXPECT_FALSE(error.isSet());
    EXPECT_EQ(subject.appIdFromProfile(), "TEAMID1234.com.example.*");
    EXPECT_EQ(subject.appIdPrefixFromProfile(), "TEAMID1234");
    EXPECT_EQ(subject.teamIdFromProfile(), "OUTERTEAM1");
    EXPECT_TRUE(subject.isWildcardProfile());

    // The decoded profile is kept; the team now comes from the entitlements.
    ASSERT_EQ(std::remove(subject.profile().c_str()), 0);
    EXPECT_TRUE(subject.validateProfile("com.example.app", false, &error)) << error.text();
    EXPECT_EQ(subject.teamIdFromProfile(), "INNERTEAM1");
    EXPECT_FALSE(subject.validateProfile("com.other", false, nullptr));
  }
}

TEST_F(SignedProfile, TellsWhyItCannotBeDecoded) {
  ErrorText error;
  const std::string plain = folder_.write("plain.mobileprovision", "not signed at all");
  EXPECT_FALSE(ProvisioningProfile::extractProvisioningProfileData(plain, context, &error));
  EXPECT_THAT(error.text(), StartsWith("Failed to execute security with exit code: "));

  for (const char* content :
       {"signed, but no property list", "<plist><string>x</string></plist>"}) {
    error.clear();
    EXPECT_FALSE(
        ProvisioningProfile::extractProvisioningProfileData(sign(content), context, &error));
    EXPECT_TRUE(error.isSet()) << content;
    EXPECT_FALSE(error.text().empty());
  }
  error.clear();
  EXPECT_EQ(ProvisioningProfile("/nowhere", context).getCertificates(&error), nullptr);
  EXPECT_THAT(error.text(), StartsWith("Failed to execute security with exit code: "));
}

TEST_F(SignedProfile, HasNoCertificatesWhenItListsNone) {
  PlistDictionary bare;
  bare.set("Name", "bare");
  ProvisioningProfile subject(sign(serializePlist(bare, PlistFormat::kXml)), context);
  const std::vector<std::string>* labels = subject.getCertificates(nullptr);
  ASSERT_NE(labels, nullptr);
  EXPECT_THAT(*labels, IsEmpty());
  EXPECT_FALSE(subject.appIdFromProfile());
  EXPECT_FALSE(subject.isWildcardProfile());
}

TEST_F(SignedProfile, FindsCertificatesOfTheKeychainByDigest) {
  const std::string der = test::derOf(identity_.certificate);
  const std::optional<Certificate> certificate = Certificate::fromDer(der);
  ASSERT_TRUE(certificate);
  std::string digest = certificate->sha1Hex();
  const std::string security = "/usr/bin/security";
  const std::string keychain = folder_.file("test.keychain");
  ASSERT_EQ(runTool(log, {security, "create-keychain", "-p", "", keychain}), 0);
  ASSERT_EQ(runTool(log, {security, "import", identity_.certificate, "-k", keychain}), 0);

  EXPECT_EQ(ProvisioningProfile::doesCertificateExistWithSHA1(digest, context), false)
      << "in no keychain yet";
  PellRequest& request = context.keychain;
  request.setKeychainPath(keychain);
  EXPECT_EQ(ProvisioningProfile::doesCertificateExistWithSHA1(digest, context), false)
      << "path without flag";
  request.setPellRequestFlag(true);
  EXPECT_EQ(ProvisioningProfile::doesCertificateExistWithSHA1(digest, context), true);
  for (char& c : digest) c = static_cast<char>(std::toupper(c));
  EXPECT_EQ(ProvisioningProfile::doesCertificateExistWithSHA1(digest, context), true);
  EXPECT_TRUE(ProvisioningProfile::doesCertificate(*certificate, digest));
  EXPECT_EQ(ProvisioningProfile::doesCertificateExistWithSHA1(digest.substr(1), context), false);
  EXPECT_EQ(ProvisioningProfile::doesCertificateExistWithSHA1("", context), false);
  EXPECT_FALSE(ProvisioningProfile::doesCertificate(*certificate, ""));
}

TEST_F(SignedProfile, WarnsOfACertificateWithoutUnit) {
  struct Case {
    std::string name;
    bool warns;
  };
  for (const Case& c : {Case{name_, false}, Case{"Nameless Works", true}, Case{"other", true}}) {
    ErrorText error;
    ProvisioningProfile::validateForiOS8Certificate(c.name, profile(), log, &error);
    EXPECT_EQ(error.text(), c.warns ? kCertificateWarning : "") << c.name;
  }
  ErrorText error;
  error.set("earlier");
  ProvisioningProfile::validateForiOS8Certificate("other", profile(), log, &error);
  EXPECT_EQ(error.text(), "earlier");
}

TEST(ProfileTools, NamesTheKeychainInTheCall) {
  const test::TemporaryFolder folder;
  test::ScriptedHostRoot host;
  host.addTool("security", "exit 0");
  RunContext context;
  context.keychain.setKeychainPath("/k/other");
  ErrorText error;
  ::testing::internal::CaptureStderr();
  EXPECT_FALSE(ProvisioningProfile::extractProvisioningProfileData("/p", context, &error));
  context.keychain.setPellRequestFlag(true);
  EXPECT_FALSE(ProvisioningProfile::extractProvisioningProfileData("/p", context, &error));
  EXPECT_EQ(ProvisioningProfile::doesCertificateExistWithSHA1("00", context), false);
  EXPECT_THAT(::testing::internal::GetCapturedStderr(),
              HasSubstr("extractProvisioningProfileData failed to extract any data from current "
                        "provisioning profile."));
  EXPECT_FALSE(error.isSet()) << "an empty decode leaves the slot alone";
  EXPECT_THAT(host.allCalls(),
              ElementsAre("security|cms|-D|-i|/p", "security|cms|-D|-k|/k/other|-i|/p",
                          "security|find-certificate|-a|-Z|/k/other"));
}

TEST(ProfileTools, AsksOpensslAboutATemporaryFile) {
  const test::TemporaryFolder folder;
  test::ScriptedHostRoot host;
  const test::ScopedEnvironment temporary("TMPDIR", folder.path());
  struct Case {
    std::string subject;
    bool warns;
  };
  for (const Case& c : {Case{"subject=/UID=A/OU=T/CN=N", false}, Case{"subject=OU = T", true},
                        Case{"/OU=a=b", true}, Case{"/ou=T", true}}) {
    host.addTool("openssl", "test -f \"$5\" && echo '" + c.subject + "'; exit 1");
    ErrorText error;
    ProvisioningProfile::validateForiOS8Certificate("x", PlistDictionary(), log, &error);
    EXPECT_EQ(error.isSet(), c.warns) << c.subject;
  }
  EXPECT_THAT(host.allCalls(folder.path()).front(),
              ::testing::MatchesRegex("openssl.x509.-inform.der.-in.@/[0-9]+.der.-subject.-noout"));
  EXPECT_THAT(*listDirectory(folder.path()), IsEmpty()) << "the temporary file stayed";
}

}  // namespace
}  // namespace tovrek
