// Edits of an existing manifest. Each loads the file, edits and writes it back whole; one that
// fails is logged and leaves the file as it was.
#pragma once

#include <optional>
#include <string>

#include "formats/XmlDocument.h"
#include "log/WrapperLogger.h"
#include "package/ManifestData.h"

namespace tovrek {

bool UpdateManifestFileAsPerUserSelection(const std::string& manifestPath, const ManifestData& data,
                                          const WrapperLogger& logger);
bool UpdateAppStoreURL(const std::string& manifestPath, const std::string& value,
                       const WrapperLogger& logger);
bool removeAppStoreURL(const std::string& manifestPath, const WrapperLogger& logger);
bool updateManifestFile(const std::string& manifestPath, const std::string& bundleFileName,
                        const WrapperLogger& logger);
bool updateAppWEXProperty(const std::string& manifestPath, const std::string& xpath,
                          const std::optional<std::string>& value, const WrapperLogger& logger);
// Fills in the package size: that of the ipa file with a dummy size given, else 2000.
bool ModifyPackageSize(const std::string& manifestPath, const std::string& ipaPath,
                       const std::optional<std::string>& dummySize, const WrapperLogger& logger);

// --- What they are made of, on a document in memory ---

// Sets the one node at an XPath; false unless exactly one matches. No value empties it.
bool ManifestUpdateInternalPurposeOnly(XmlDocument& document, const std::string& xpath,
                                       const std::optional<std::string>& value);
// Removes the one node at an XPath; false, logged, unless exactly one matches.
bool ManifestUpdateInternalPurposeOnly(XmlDocument& document, const std::string& xpath,
                                       const WrapperLogger& logger);
// Appends an element with a CRKW attribute at the end of the one element at `writePath`.
bool ManifestUpdateAddElementInternalPurposeOnly(XmlDocument& document,
                                                 const std::string& writePath,
                                                 const std::optional<std::string>& value,
                                                 const std::string& name,
                                                 const std::string& attribute);

}  // namespace tovrek
