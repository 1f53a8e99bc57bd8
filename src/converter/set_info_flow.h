// SetInfo: the manifest of a finished package is changed.
#pragma once

#include <optional>
#include <string>

#include "converter/Run.h"
#include "host/ErrorText.h"

namespace tovrek::converter {

// True: the changed package was written.
bool updatePackage(Run& run, ErrorText* error);

// Unpacks a package and changes its manifest; what is to be packed again lies in `directory`.
bool extractAndUpdateWexPackageInTempDir(const Run& run, TemporaryDirectory& directory,
                                         ErrorText* error);
// Changes the manifest as requested. A failure is only logged.
bool updateWEXpackage(const Run& run, const UnzippedCma& package);
// Puts an .ipa into the unpacked package, in place of those in it.
bool doEmbedBundle(const Run& run, const std::optional<std::string>& bundlePath,
                   const UnzippedCma& package);

}  // namespace tovrek::converter
