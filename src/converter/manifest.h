// The package's manifest: building it, and filling in what is known only in the end.
#pragma once

#include "converter/Run.h"
#include "host/ErrorText.h"

namespace tovrek::converter {

// --- Steps ---

bool buildManifest(Run& run, ErrorText* error);
// Icons are not worth a failed run.
bool copyIcons(Run& run, ErrorText* error);
// Fills in the size of the .ipa, and what the user wants told in the manifest.
bool completeManifest(Run& run, ErrorText* error);
// The same where the .ipa is not in the package, but beside it or still to be made by others.
bool completeManifestOfSdkApp(Run& run, ErrorText* error);
bool completeManifestOfAppFolder(Run& run, ErrorText* error);

}  // namespace tovrek::converter
