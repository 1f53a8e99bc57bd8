// Apart from the other questions about a profile, as no program asks these.
#include "formats/entitlement_keys.h"
#include "host/paths.h"
#include "profile/ProvisioningProfile.h"

namespace tovrek {

bool ProvisioningProfile::validateProfile(const std::string& bundleId,
                                          bool preserveUpgradeCompatibility, ErrorText* error) {
  if (!decode(error)) return false;
  readIdentifiers();
  const PlistDictionary* listed = dictionaryForKey(*profilePList_, "Entitlements");
  const PlistDictionary entitlements = listed != nullptr ? *listed : PlistDictionary();
  const std::string* team = stringForKey(entitlements, entitlement::kTeamIdentifier);
  teamIdFromProfile_ = team != nullptr ? std::optional(*team) : std::nullopt;
  return validateProfileWithPList(entitlements, bundleId, preserveUpgradeCompatibility,
                                  context_.loggers.toolkit, error);
}

bool ProvisioningProfile::doesCertificate(const Certificate& certificate, std::string_view sha1) {
  return !sha1.empty() && equalsIgnoringCase(certificate.sha1Hex(), sha1);
}

}  // namespace tovrek
