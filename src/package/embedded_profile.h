// Values of a provisioning profile, read without its signature.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "formats/PlistValue.h"
#include "log/WrapperLogger.h"

namespace tovrek {

// The value at a key path ("Entitlements.application-identifier") in the property list inside a
// provisioning profile; none without it. A profile that cannot be read is logged. The signature
// around it is not verified.
std::optional<PlistValue> ReadEmbeddedProfile(const std::string& path, std::string_view keyPath,
                                              const WrapperLogger& logger);

// When the profile in an app bundle expires, as a manifest says it; none without such a date.
std::optional<std::string> profileExpiry(const std::string& bundlePath,
                                         const WrapperLogger& logger);

}  // namespace tovrek
