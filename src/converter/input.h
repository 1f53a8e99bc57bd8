// Taking the user's app in: unpacking, and what every flow sees to before it looks at the app.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "converter/Run.h"
#include "host/ErrorText.h"

namespace tovrek::converter {

// Unpacks the input into the slot's folder; makes one when the slot is empty. Null with the reason
// on failure. The slot for the reason reads "Invalid input" after a success.
std::shared_ptr<UnzippedIpa> unzipIpa(const std::optional<std::string>& inputPath,
                                      std::shared_ptr<TemporaryDirectory>* tempDir,
                                      ErrorText* error, const WrapperLogger& log);

// Fails, in the log too, when the folder holds a link that leads out of it.
bool refuseLinksOutside(const WrapperLogger& log, const std::string& folder, ErrorText* error);

// Tells what killed runs had left and this one has removed.
void logLeftovers(const WrapperLogger& log, const TemporaryDirectory& directory);

// --- Steps ---

// An .ipa or .app, unless it was unpacked before.
bool unpackApp(Run& run, ErrorText* error);
// An app that its developer has unpacked, used where it stands.
bool openAppFolder(Run& run, ErrorText* error);
// A package and the .ipa in it.
bool unpackPackage(Run& run, ErrorText* error);
bool refuseLinksOutOfApp(Run& run, ErrorText* error);
bool refuseLinksOutOfPackage(Run& run, ErrorText* error);
// What an archive unpacked to the package folder is not to get into the package.
bool emptyPackageFolder(Run& run, ErrorText* error);

}  // namespace tovrek::converter
