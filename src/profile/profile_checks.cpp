// What a profile's entitlements allow and what they lack.
#include <fmt/format.h>

#include <algorithm>

#include "formats/entitlement_keys.h"
#include "host/paths.h"
#include "profile/ProvisioningProfile.h"

namespace tovrek {
namespace {

// The team prefix and its dot.
constexpr size_t kPrefixLength = 11;

std::string withoutAsterisks(std::string text) {
  std::erase(text, '*');
  return text;
}

}  // namespace

bool ProvisioningProfile::validateProfileWithPList(const PlistDictionary& entitlements,
                                                   std::string_view bundleId,
                                                   bool preserveUpgradeCompatibility,
                                                   const WrapperLogger& log, ErrorText* error) {
  const std::string appId = stringForKeyOr(entitlements, entitlement::kApplicationIdentifier, "");
  const std::string allowed = appId.substr(std::min(kPrefixLength, appId.size()));

  if (allowed.ends_with('*')) {
    if (allowed == "*" || preserveUpgradeCompatibility) return true;
    if (bundleId.find(withoutAsterisks(allowed)) != std::string_view::npos) return true;
    return fail(error, fmt::format("Bundle identifier <{}> is not suitable for use with wildcard "
                                   "profile <{}>.  Change the bundle indentifier above or choose "
                                   "a different profile.",
                                   bundleId, allowed));
  }
  if (allowed != bundleId) {
    return fail(error, fmt::format("This provisioning profile is specific to <{}>.  Change the "
                                   "bundle indentifier above or choose a different profile.",
                                   allowed));
  }
  log.logBasic(
      "The provisioning profile is an app-specific profile and matches the bundle ID for the app. "
      "Validation passed.");
  return true;
}

void ProvisioningProfile::validateProfileWithDataProtection(const PlistDictionary& entitlements,
                                                            const WrapperLogger& log,
                                                            ErrorText* error) {
  const std::string* protection =
      stringForKey(entitlements, "com.apple.developer.default-data-protection");
  if (protection == nullptr) return;
  if (!equalsIgnoringCase(*protection, "NSFileProtectionNone")) {
    fail(error, fmt::format("WARNING: Data Protection is enabled in mobile profile ({}), this will "
                            "prevent app from accessing files when device is locked",
                            *protection));
    return;
  }
  log.logBasic(
      "The provisioning profile is a special profile with explicit app ID that matches the input "
      "IPA. Validation passed.");
}

void ProvisioningProfile::validateProfileWithTeamIdentifier(const PlistDictionary& entitlements,
                                                            const WrapperLogger& log,
                                                            ErrorText* error) {
  if (entitlements.contains(entitlement::kTeamIdentifier)) return;
  constexpr char kWarning[] =
      "WARNING: Your provisioning profile does not contain the team identifier entitlement "
      "required for iOS 8.";
  log.logBasic(kWarning);
  warnIfEmpty(error, kWarning);
}

}  // namespace tovrek
