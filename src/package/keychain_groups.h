// Whether an app may share keychain items with a group of apps.
#pragma once

#include <string>

#include "host/ErrorText.h"
#include "log/WrapperLogger.h"

namespace tovrek {

// Whether a keychain access group of the entitlements file holds `group`; groups carry a team
// prefix, hence the search for a part. A file that is missing or unreadable fills the slot.
bool checkKeychainAccessGroup(const std::string& group, const std::string& entitlementsFile,
                              ErrorText* error, const WrapperLogger& logger);
// The same over the signed entitlements of a bundle.
bool checkKeychainAccessGroupInAppBundlePath(const std::string& group,
                                             const std::string& appBundlePath,
                                             const WrapperLogger& logger);

}  // namespace tovrek
