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
// Fits one list of identifiers to the new application identifier.
void MergeAppIDGroupsWithOldEntitlement(const WrapperLogger& log,
                                        const std::optional<PlistDictionary>& oldEntitlements,
                                        PlistDictionary* newEntitlements, const std::string& key,
                                        const std::optional<std::string>& oldAppId,
                                        const std::optional<std::string>& oldAppIdPrefix,
                                        const std::string& newAppId);
std::string generatePlistXMLStringFromDictionary(const PlistDictionary& dictionary);
// Whether the entitlements file grants the group through which our library shares data.
bool checkWexKeychainEntitlementInFile(const WrapperLogger& log, const std::string& path,
                                       ErrorText* error);

// --- Steps ---

// Decodes the profile. One that cannot be decoded fails with the entitlements.
bool readProfile(Run& run, ErrorText* error);
// One that could not be decoded has no date, and passes.
bool refuseExpiredProfile(Run& run, ErrorText* error);
bool makeEntitlements(Run& run, ErrorText* error);
// After that step, for a renewal. The groups that wrapping adds are there from the last time;
// without this every renewal would make the list longer.
bool dropRepeatedGroups(Run& run, ErrorText* error);
// The entitlements that the developer is going to sign with, if given, hold our group.
bool requireManagementGroup(Run& run, ErrorText* error);

}  // namespace tovrek::converter
