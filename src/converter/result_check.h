// The last look at the signed app, before anything of it is written.
#pragma once

#include "converter/Run.h"
#include "host/ErrorText.h"

namespace tovrek::converter {

// Step: asks what a device would refuse, and warns of it or fails, as the setting says.
bool checkResult(Run& run, ErrorText* error);

}  // namespace tovrek::converter
