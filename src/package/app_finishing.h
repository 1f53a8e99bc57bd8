// Finishing an app for its package: the last edits to its files before it is signed.
#pragma once

#include <optional>

#include "log/WrapperLogger.h"
#include "package/MobileApp.h"
#include "package/WexManifestAppInfo.h"

namespace tovrek {

// Adds the management layer's entries to the Info.plist and writes the settings file. Answers
// what a manifest says about the finished app: identifiers, name, checksum, key. None, logged, on
// failure, with the edits made so far left in place.
std::optional<MobileApp> finishApp(const WexManifestAppInfo& appInfo, const WrapperLogger& logger,
                                   bool showsProgress = false);

}  // namespace tovrek
