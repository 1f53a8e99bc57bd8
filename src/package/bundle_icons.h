// Which icons an app has.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "log/WrapperLogger.h"
#include "package/AppBundle.h"

namespace tovrek {

// File names of the app's icons in the bundle's top folder, each ending in ".png", as often as they
// are listed; conventional ones that need not be listed come once.
// None when there are no icons. Icons that exist only in other scales are created; those without
// any file are logged and left out.
std::optional<std::vector<std::string>> readIconsDetailsFromAppBundle(const AppBundle& bundle,
                                                                      const WrapperLogger& logger);
// The file name that stands for a listed icon name without a file: the name with ".png", made as
// a standard PNG from the best match of "name*.png" in the bundle's top folder.
std::optional<std::string> findAndCreateMatchingPatternForFile(const std::string& iconName,
                                                               const std::string& bundlePath,
                                                               const WrapperLogger& logger);

}  // namespace tovrek
