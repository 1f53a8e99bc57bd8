// Profiles and entitlements of their own for the extensions and watch apps that stay in an app.
#pragma once

#include <string>
#include <vector>

#include "converter/Run.h"
#include "host/ErrorText.h"

namespace tovrek::converter {

// Whether nested bundles get what they need in this run: a folder of profiles was given, or they
// are renamed. Else they are treated as ever.
bool fitsExtensions(const Run& run);

// --- Steps ---

// Reads the folder of profiles. One that cannot be read ends the run; a file in it is a warning.
bool readProfilesFolder(Run& run, ErrorText* error);
// Renames and chooses, embeds profiles and writes entitlements. What no profile is for keeps its
// own, with the warning that it may not work. Nothing is signed yet.
bool fitExtensions(Run& run, ErrorText* error);

// Signs those of the fitted bundles that lie in the app's frameworks, or those that do not; inner
// ones first, each after its own frameworks.
enum class FittedPlace { kInFrameworks, kElsewhere };
bool signFitted(const Run& run, FittedPlace place, ErrorText* error);
bool hasFitted(const Run& run, FittedPlace place);

}  // namespace tovrek::converter
