// What leaves the scratch folder: the files that the user asked for.
#pragma once

#include <string>

#include "converter/Run.h"
#include "host/ErrorText.h"

namespace tovrek::converter {

// Whether the file that the output would replace is the one the user gave.
bool isInput(const Run& run, const std::string& output);
// Replaces it once the new file is whole, so that a full disk costs the user nothing.
bool replaceInput(const Run& run, const std::string& from, const std::string& output,
                  ErrorText* error);

// --- Steps ---

// Copies the .ipa to where the user asked for it besides the package, if so.
bool copyOutputBundle(Run& run, ErrorText* error);
// Copies the .ipa to the output file.
bool deliverIpa(Run& run, ErrorText* error);

}  // namespace tovrek::converter
