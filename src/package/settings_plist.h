// The settings file "Orvane.plist", by which a managed app knows its package.
#pragma once

#include <string>

#include "formats/PlistValue.h"
#include "log/WrapperLogger.h"
#include "package/MobileApp.h"

namespace tovrek {

// Writes a settings file atomically; false for an empty path.
bool GenerateOrvanePlistFile(const PlistDictionary& dictionary, const std::string& path);
// Writes that of an app into its bundle, with what the manifest says about it. A failure is
// logged.
bool writeSettingsFile(const std::string& bundlePath, const MobileApp& app,
                       const std::string& appMode, const WrapperLogger& logger);

}  // namespace tovrek
