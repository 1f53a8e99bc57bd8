// Whether an app has Microsoft Intune inside.
#pragma once

#include <optional>
#include <string>

#include "host/ErrorText.h"
#include "log/WrapperLogger.h"

namespace tovrek {

// By its framework, resources, access group or symbols, in this order up to the first that is
// found. Each look is logged. False with a text in the slot when a tool that was to look could not
// be started.
bool detectIntuneInAppBundle(const std::string& appBundlePath,
                             const std::optional<std::string>& entitlementsFile,
                             const WrapperLogger& logger, ErrorText* error = nullptr);

}  // namespace tovrek
