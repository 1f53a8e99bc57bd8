// What becomes of the app's extensions and its watch app.
#pragma once

#include "converter/Run.h"
#include "host/ErrorText.h"

namespace tovrek::converter {

// The warning of an app whose extensions may not work.
inline constexpr char kExtensionsDoubtful[] =
    "WARNING: The created package includes one or more app extensions that have been re-signed to "
    "permit app installation.  These extensions are NOT likely to function properly.";

// --- Steps ---

// Wrap strips them, or warns of them where the user wants to have them.
bool stripOrReportExtensions(Run& run, ErrorText* error);
// Sign strips them, or keeps them where a setting says so.
bool stripOrKeepExtensions(Run& run, ErrorText* error);

}  // namespace tovrek::converter
