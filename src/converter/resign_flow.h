// Sign, of an .ipa.
#pragma once

#include "converter/Run.h"
#include "host/ErrorText.h"

namespace tovrek::converter {

// True: the output .ipa was written.
bool resignApp(Run& run, ErrorText* error);

}  // namespace tovrek::converter
