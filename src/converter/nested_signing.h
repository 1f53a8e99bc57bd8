// The code inside the app that Sign signs anew when the settings say so: frameworks, extensions and
// the watch app, from the inside out.
#pragma once

#include "converter/Run.h"
#include "host/ErrorText.h"

namespace tovrek::converter {

// Step: signs the app, and first what it holds if a setting says so.
bool signAgain(Run& run, ErrorText* error);

}  // namespace tovrek::converter
