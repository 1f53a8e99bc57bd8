// What becomes of the app's extensions and its watch app.
#pragma once

#include "converter/Run.h"
#include "host/ErrorText.h"

namespace tovrek::converter {

// The warning of an app whose extensions may not work.
inline constexpr char kExtensionsDoubtful[] =
    "WARNING: The created package includes one or more app extensions that have been re-signed to "
    "permit app installation.  These extensions are NOT likely to function properly.";

}  // namespace tovrek::converter
