// The symbols of a binary.
#pragma once

#include <string>

#include "host/ErrorText.h"

namespace tovrek {

// Their names as the tool prints them; `terminateStatus` (may be null) gets the tool's exit
// status, 127 when it could not be started, or the number of the signal that ended it. In both
// cases, which are no answer, the reason is in the slot and `answered` is false.
std::string getSymbolsFromBinaryPath(const std::string& path, int* terminateStatus,
                                     bool* answered = nullptr, ErrorText* error = nullptr);

}  // namespace tovrek
