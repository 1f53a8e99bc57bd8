// The app's identifier, before and after.
#pragma once

#include <optional>
#include <string>

#include "converter/Run.h"
#include "formats/PlistValue.h"
#include "host/ErrorText.h"

namespace tovrek::converter {

// Gives the app below the Payload folder a new identifier; the old one is kept under another key.
// False, with the file and the reason, when there is no Info.plist or it cannot be written.
bool doAppBundleIDChange(const std::optional<std::string>& bundleId, const std::string& payloadDir,
                         ErrorText* error = nullptr);
std::optional<std::string> infoPlistPathFromAppPath(const std::string& folder);
bool changeBundleIDForFile(const std::string& plistPath, const std::string& bundleIdKey,
                           const std::optional<std::string>& newBundleId, PlistFormat format,
                           ErrorText* error = nullptr);

}  // namespace tovrek::converter
