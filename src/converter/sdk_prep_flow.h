// SdkPrep: an app that its developer has built with our SDK gets its management files and a
// package, and is signed and published by its developer.
#pragma once

#include "converter/Run.h"
#include "host/ErrorText.h"

namespace tovrek::converter {

// True: the package was written.
bool prepareSdkApp(Run& run, ErrorText* error);

}  // namespace tovrek::converter
