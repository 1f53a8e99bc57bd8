// Sign, of a package: the app in it is signed anew.
#pragma once

#include "converter/Run.h"
#include "host/ErrorText.h"

namespace tovrek::converter {

// True: the new package was written.
bool resignPackage(Run& run, ErrorText* error);

}  // namespace tovrek::converter
