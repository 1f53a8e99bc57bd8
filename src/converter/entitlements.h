// The entitlements of the new signature: what the profile grants, fitted to the app.
#pragma once

#include <optional>
#include <string>

#include "converter/Run.h"
#include "formats/PlistValue.h"
#include "host/ErrorText.h"

namespace tovrek::converter {

// Writes the entitlements for the new signature below `targetDir` and stores their path.
bool generateNewEntitlement(const Run& run, std::string* entitlementPath,
                            const std::optional<PlistDictionary>& profileData,
                            const std::string& targetDir, const std::string& appPath,
                            ErrorText* error);
// The same from a profile saved as a property list.
bool GenerateEntitlement(const Run& run, const std::string& targetPath,
                         const std::string& profilePath, const std::string& appPath,
                         ErrorText* error);
// Whether the entitlements file grants the group through which our library shares data.
bool checkWexKeychainEntitlementInFile(const WrapperLogger& log, const std::string& path,
                                       ErrorText* error);

}  // namespace tovrek::converter
