// Wrap: an app becomes a managed app in a package.
#pragma once

#include "converter/Run.h"
#include "host/ErrorText.h"

namespace tovrek::converter {

// True: the package, or the output .ipa, was written.
bool wrapApp(Run& run, ErrorText* error);
// The same for an app that was built with our SDK, and so has the library in it already.
bool wrapSdkApp(Run& run, ErrorText* error);

}  // namespace tovrek::converter
