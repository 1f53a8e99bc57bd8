// The points that lie between a bundle and its provisioning profile.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include "device/grants.h"
#include "device/installation.h"
#include "formats/entitlement_keys.h"
#include "host/clock.h"

namespace tovrek::device {
namespace {

class ProfileJudge {
 public:
  ProfileJudge(const Profile& profile, const BundleFacts& bundle)
      : profile_(profile), bundle_(bundle) {}

  void judgeKind(double now);
  void judgeIdentifier();
  void judgeSigner();
  void judgeEntitlements();
  Findings take() { return std::move(findings_); }

 private:
  void refuse(std::string_view code, std::string reason) {
    findings_.push_back({code, bundle_.place, std::move(reason)});
  }
  void limit(std::string_view code, std::string reason) {
    findings_.push_back({code, bundle_.place, std::move(reason), false});
  }
  void judgeIdentifiersAmong(const PlistDictionary& entitlements);

  const Profile& profile_;
  const BundleFacts& bundle_;
  Findings findings_;
};

void ProfileJudge::judgeKind(double now) {
  if (!profile_.isValidAt(now)) {
    refuse(kProfileDates,
           fmt::format("the provisioning profile is valid from {} to {}",
                       dateDescription(profile_.created), dateDescription(profile_.expires)));
  }
  if (!profile_.isForDevices()) {
    return refuse(kProfilePlatform, fmt::format("the provisioning profile is for {}, not for iOS",
                                                fmt::join(profile_.platforms, ", ")));
  }
  if (profile_.isForStore()) {
    return refuse(kProfileStore,
                  "the provisioning profile is for a store: it names no devices, and apps with it "
                  "are installed from the store alone");
  }
  if (!profile_.allDevices) {
    limit(kProfileDevices, fmt::format("the provisioning profile admits {} devices alone",
                                       profile_.devices->size()));
  }
  const PlistValue* debugged = profile_.entitlements.find(entitlement::kGetTaskAllow);
  if (debugged != nullptr && debugged->boolean() != nullptr && *debugged->boolean()) {
    limit(kProfileDevelopment, "the provisioning profile is for development: debuggers may attach");
  }
}

void ProfileJudge::judgeIdentifier() {
  if (bundle_.identifier.empty()) {
    refuse(kIdentifierMissing, "the Info.plist gives no CFBundleIdentifier");
  } else if (!profile_.covers(bundle_.identifier)) {
    refuse(kIdentifierNotInProfile,
           fmt::format("the provisioning profile is for {}, not for {}",
                       profile_.applicationIdentifier, bundle_.identifier));
  }
}

void ProfileJudge::judgeSigner() {
  if (!bundle_.signer || profile_.lists(*bundle_.signer)) return;
  refuse(kCertificateNotInProfile,
         fmt::format("the provisioning profile does not list the certificate \"{}\" with SHA-1 {}",
                     bundle_.signer->inferredLabel(), bundle_.signer->sha1Hex()));
}

void ProfileJudge::judgeEntitlements() {
  const auto& entitlements = bundle_.entitlements;
  if (!entitlements || entitlements->empty()) {
    return refuse(kEntitlementsMissing, "the signature holds no entitlements");
  }
  judgeIdentifiersAmong(*entitlements);
  for (const std::string& key : notGranted(profile_.entitlements, *entitlements)) {
    if (key == entitlement::kApplicationIdentifier) continue;  // said already
    const bool isPart = profile_.entitlements.contains(key);
    refuse(kEntitlementNotGranted, fmt::format("the provisioning profile does not grant {} {}",
                                               isPart ? "this value of" : "the entitlement", key));
  }
}

void ProfileJudge::judgeIdentifiersAmong(const PlistDictionary& entitlements) {
  const std::string own = stringForKeyOr(entitlements, entitlement::kApplicationIdentifier, "");
  if (own.empty()) {
    refuse(kEntitlementsMissing, "the entitlements lack application-identifier");
  } else if (!admits(profile_.applicationIdentifier, own)) {
    refuse(kIdentifierNotInProfile,
           fmt::format("the provisioning profile is for {}, the entitlements say {}",
                       profile_.applicationIdentifier, own));
  } else if (!bundle_.identifier.empty() && !own.ends_with("." + bundle_.identifier)) {
    refuse(kIdentifierMismatch,
           fmt::format("the entitlements say {}, the Info.plist {}", own, bundle_.identifier));
  }
}

}  // namespace

Findings judgeProfile(const Profile& profile, const BundleFacts& bundle, double now) {
  ProfileJudge judge(profile, bundle);
  judge.judgeKind(now);
  judge.judgeIdentifier();
  judge.judgeSigner();
  judge.judgeEntitlements();
  return judge.take();
}

}  // namespace tovrek::device
