// Under which identifier an app runs.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "log/WrapperLogger.h"
#include "package/AppBundle.h"

namespace tovrek {

// The team's part of an application identifier: what stands before the first "."; all of it
// without one.
std::string prefixOf(std::string_view applicationIdentifier);

// The identifier that the embedded profile grants, else that of the signature, else one made of
// the team and the bundle identifier, with that identifier in place of a wildcard. None for a
// wildcard without a bundle identifier.
std::optional<std::string> applicationIdentifier(const AppBundle& bundle,
                                                 const std::string& bundleId,
                                                 const std::optional<std::string>& teamId,
                                                 const WrapperLogger& logger);

}  // namespace tovrek
