// The Intune directory client and gateway resource in an app's Info.plist.
#pragma once

#include <optional>
#include <string>

#include "log/WrapperLogger.h"
#include "package/WexInfoPlistModifier.h"

namespace tovrek {

// An explicit value replaces what the app has, a default is only filled in. True also where a
// value of the app's was kept.
bool updateInfoPlistObject(WexInfoPlistModifier& infoPlist,
                           const std::optional<std::string>& adalClientID,
                           const std::optional<std::string>& nsgResource,
                           const WrapperLogger& logger);

}  // namespace tovrek
