// What profiles grant, which one is chosen, and what devices say of one that does not fit.
#include <gmock/gmock.h>

#include "device/grants.h"
#include "device/installation.h"
#include "device/profile_choice.h"
#include "formats/entitlement_keys.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/openssl_identity.h"

namespace tovrek::device {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Array = PlistValue::Array;

constexpr double kNow = 1e9;

TEST(Grants, PartsThatAreGranted) {
  const Array ab = {"T.a", "T.b"};
  const struct {
    PlistValue granted, wanted;
    std::optional<PlistValue> part;
  } cases[] = {
      {"a", "a", "a"},
      {"a", "ab", std::nullopt},
      {"T.*", "T.a", "T.a"},
      {"T.*", "U.a", std::nullopt},
      {"T.*", ab, ab},
      {Array{"T.*"}, ab, ab},
      {Array{"T.b"}, ab, Array{"T.b"}},
      {Array{"T.c"}, ab, std::nullopt},
      {Array{"T.c"}, Array{}, Array{}},
      {Array{"Development", "Production"}, "Production", "Production"},
      {true, true, true},
      {true, false, std::nullopt},
      {"*", true, std::nullopt},
      {Array(1, Array{"T.a"}), "T.a", std::nullopt},  // for clang two braces would be one list
  };
  for (const auto& c : cases) {
    EXPECT_EQ(grantedPart(c.granted, c.wanted), c.part) << &c - cases;
  }
}

class Profiles : public ::testing::Test {
 protected:
  Certificate certificate(const std::string& name) {
    test::IdentityRequest request;
    request.subject = "/CN=" + name;
    const auto files = test::makeIdentity(folder_, name, request);
    return *Certificate::fromDer(test::derOf(files.certificate));
  }
  static Profile profileFor(const std::string& identifier, double expires = kNow + 10) {
    Profile profile;
    profile.applicationIdentifier = "TEAM." + identifier;
    profile.entitlements.set(entitlement::kApplicationIdentifier, profile.applicationIdentifier);
    profile.entitlements.set("group", Array{"a", "b"});
    profile.expires = expires;
    profile.allDevices = true;
    return profile;
  }
  static std::vector<std::string_view> codesOf(const Findings& findings) {
    std::vector<std::string_view> codes;
    for (const Finding& finding : findings) codes.push_back(finding.code);
    return codes;
  }

  const test::TemporaryFolder folder_;
};

TEST_F(Profiles, EachRefusalHasItsCode) {
  const Certificate listed = certificate("Listed");
  Profile good = profileFor("com.a.*");
  good.certificates = {listed};
  BundleFacts facts{"A.app", "com.a.b", listed, PlistDictionary()};
  facts.entitlements->set(entitlement::kApplicationIdentifier, "TEAM.com.a.b");
  facts.entitlements->set("group", Array{"b"});
  EXPECT_THAT(judgeProfile(good, facts, kNow), IsEmpty());

  const auto judged = [&](const std::function<void(Profile*, BundleFacts*)>& change) {
    Profile profile = good;
    BundleFacts bundle = facts;
    change(&profile, &bundle);
    return codesOf(judgeProfile(profile, bundle, kNow));
  };
  EXPECT_THAT(judged([](auto* profile, auto*) { profile->expires = kNow; }),
              ElementsAre(kProfileDates));
  EXPECT_THAT(judged([](auto* profile, auto*) { profile->created = kNow + 1; }),
              ElementsAre(kProfileDates));
  EXPECT_THAT(judged([](auto* profile, auto*) { profile->platforms = {"OSX"}; }),
              ElementsAre(kProfilePlatform));
  EXPECT_THAT(judged([](auto* profile, auto*) { profile->allDevices = false; }),
              ElementsAre(kProfileStore));
  EXPECT_THAT(judged([&](auto*, auto* bundle) { bundle->signer = certificate("Other"); }),
              ElementsAre(kCertificateNotInProfile));
  EXPECT_THAT(judged([](auto*, auto* bundle) { bundle->entitlements.reset(); }),
              ElementsAre(kEntitlementsMissing));
  EXPECT_THAT(judged([](auto*, auto* bundle) { bundle->identifier = "com.a.c"; }),
              ElementsAre(kIdentifierMismatch));
  EXPECT_THAT(judged([](auto*, auto* bundle) { bundle->identifier = ""; }),
              ElementsAre(kIdentifierMissing));
  EXPECT_THAT(judged([](Profile* profile, auto*) { profile->applicationIdentifier = "TEAM.x"; }),
              ElementsAre(kIdentifierNotInProfile, kIdentifierNotInProfile));
  EXPECT_THAT(judged([](auto*, BundleFacts* bundle) {
                bundle->entitlements->set("group", Array{"b", "c"});
                bundle->entitlements->set("push", true);
              }),
              ElementsAre(kEntitlementNotGranted, kEntitlementNotGranted));

  // Limits are no refusals.
  good.allDevices = false;
  good.devices.emplace();
  good.entitlements.set(entitlement::kGetTaskAllow, true);
  const Findings limits = judgeProfile(good, facts, kNow);
  EXPECT_THAT(codesOf(limits), ElementsAre(kProfileDevices, kProfileDevelopment));
  for (const Finding& limit : limits) EXPECT_FALSE(limit.isRefused);
}

TEST_F(Profiles, TheBestIsChosen) {
  const Certificate signer = certificate("Signer");
  std::vector<StoredProfile> profiles;
  const auto add = [&](const std::string& name, Profile profile) {
    profile.certificates = {signer};
    profiles.push_back({name, std::move(profile)});
  };
  add("all", profileFor("*", kNow + 99));
  add("late", profileFor("com.a.*", kNow + 20));
  add("early", profileFor("com.a.*", kNow + 10));
  add("exact", profileFor("com.a.b", kNow + 1));
  ProfileWish wish;
  wish.isSigner = [&](const Certificate& each) { return each.der() == signer.der(); };
  const auto best = [&](const std::string& identifier, double now) {
    wish.bundleIdentifier = identifier;
    wish.now = now;
    const StoredProfile* found = bestProfile(profiles, wish);
    return found == nullptr ? "" : found->path;
  };
  EXPECT_EQ(best("com.a.b", kNow), "exact");
  EXPECT_EQ(best("com.a.b", kNow + 5), "late");
  EXPECT_EQ(best("com.a.b", kNow + 30), "all");
  EXPECT_EQ(best("com.a.b.c", kNow), "late");
  EXPECT_EQ(best("org.x", kNow), "all");
  EXPECT_EQ(best("", kNow), "");
  EXPECT_EQ(best("org.x", kNow + 100), "");
  wish.forStore = true;
  EXPECT_EQ(best("com.a.b", kNow), "");
  profiles[1].profile.allDevices = false;
  EXPECT_EQ(best("com.a.b", kNow), "late");
  wish.isSigner = [](const Certificate&) { return false; };
  EXPECT_EQ(best("com.a.b", kNow), "");
}

}  // namespace
}  // namespace tovrek::device
