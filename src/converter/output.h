// What leaves the scratch folder: the steps that write the files which the user asked for. A file
// that stands there, be it the input, is replaced once the new one is whole and on the disk.
#pragma once

#include <string>

#include "converter/Run.h"
#include "host/ErrorText.h"

namespace tovrek::converter {

// Copies the .ipa to where the user asked for it besides the package, if so.
bool copyOutputBundle(Run& run, ErrorText* error);
// Copies the .ipa to the output file.
bool deliverIpa(Run& run, ErrorText* error);

}  // namespace tovrek::converter
