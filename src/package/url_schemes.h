// URL schemes in an Info.plist: those that open the app, and those that the app may ask for.
#pragma once

#include <string>
#include <vector>

#include "formats/PlistValue.h"
#include "log/WrapperLogger.h"

namespace tovrek {

// Appends a URL type for `url`, in place of those that hold a scheme with `group` in it. An empty
// group replaces nothing.
bool AddURLScheme(const std::string& url, const std::string& group, PlistDictionary& infoPlist);
// Adds schemes to those the app may query. False, logged, for an empty dictionary.
bool addURLSchemes(const std::vector<std::string>& schemes, PlistDictionary& infoPlist,
                   const WrapperLogger& logger);
// The schemes of the management companion apps.
std::vector<std::string> defaultURLSchemesToWhitelist();

}  // namespace tovrek
