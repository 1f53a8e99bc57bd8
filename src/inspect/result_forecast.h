// What a device would say to an app once it has been wrapped.
#pragma once

#include <string>
#include <vector>

#include "device/Finding.h"
#include "device/profile_choice.h"
#include "inspect/forecast.h"
#include "settings/Settings.h"
#include "signing/CertificateChain.h"

namespace tovrek::inspect {

// What a wrap would sign with.
struct NewSignature {
  const ProfileDetails& profile;
  const signing::CertificateChain& chain;  // leaf first
  std::string bundleId;
};

// Whether a wrap removes this piece of code, by its path in the app.
bool isStripped(const std::string& path, const WrapWish& wish);

// The points that the check of the result would find, foretold from what the app holds now:
// profile, identifiers and entitlements of each bundle, and signatures that a wrap leaves as they
// are. `stored` are the profiles of the folder that the settings name.
device::Findings forecastResult(const Subject& subject, const NewSignature& signature,
                                const WrapWish& wish, const Settings& settings, double now,
                                const std::vector<device::StoredProfile>& stored);

}  // namespace tovrek::inspect
