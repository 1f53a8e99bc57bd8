// What an app's Info.plist has to say for the app to be managed.
#pragma once

#include <string>

#include "log/WrapperLogger.h"
#include "package/WexInfoPlistModifier.h"
#include "package/WexManifestAppInfo.h"

namespace tovrek {

// The scheme by which the management companion apps reach the app of a package.
std::string managementUrlScheme(const std::string& packageId);

// Adds texts for permissions, URL schemes and, for an app with Intune inside, its settings, and
// writes the Info.plist. False, logged, when an entry could not be added; nothing is written then.
bool addManagementEntries(WexInfoPlistModifier& infoPlist, const WexManifestAppInfo& appInfo,
                          const std::string& packageId, const std::string& friendlyName,
                          const WrapperLogger& logger);

}  // namespace tovrek
