// What the entitlements of a new signature are: those of the profile, fitted to the app.
#pragma once

#include <optional>
#include <string>

#include "formats/PlistValue.h"
#include "host/ErrorText.h"
#include "log/WrapperLogger.h"

namespace tovrek {

// The group through which the management library shares data between apps.
inline constexpr char kManagementGroup[] = "com.orvane.wex";

// The application identifier that an app of this bundle identifier gets with this profile. A
// wildcard profile leaves the bundle part open; an upgrade keeps all of the profile's part.
std::string newApplicationIdentifier(const PlistDictionary& profile,
                                     const std::optional<std::string>& bundleId, bool isUpgrade);

// The property list of the new entitlements, in XML. `old` are those of the signature that goes;
// none where there was none to read. What the app had and the profile does not grant is a warning,
// and a text in the slot.
std::string newEntitlements(const WrapperLogger& log, const PlistDictionary& profile,
                            const std::optional<PlistDictionary>& old, const std::string& newAppId,
                            ErrorText* error);

}  // namespace tovrek
