// The entitlements of an extension or watch app, made from its profile.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "device/Profile.h"
#include "formats/PlistValue.h"

namespace tovrek::converter {

// What a nested bundle is to be called, where the app got a new identifier.
using Renaming = std::function<std::string(const std::string& identifier)>;

// Everything that the profile leaves no choice about, the application identifier of the bundle, and
// those of the old entitlements that the profile grants, with its prefix in place of the old one. A
// shared group takes the new name that `renamed` gives it where the profile grants that name and
// not the old one. `lost` gets the keys of which the profile does not grant everything.
PlistDictionary nestedEntitlements(const device::Profile& profile, const PlistDictionary& old,
                                   const std::string& bundleIdentifier, const Renaming& renamed,
                                   std::vector<std::string>* lost);

}  // namespace tovrek::converter
