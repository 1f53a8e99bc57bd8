// The symbols of a binary.
#pragma once

#include <string>

namespace tovrek {

// Their names as the tool prints them; `terminateStatus` (may be null) gets the tool's exit
// status, 127 when it could not be started.
std::string getSymbolsFromBinaryPath(const std::string& path, int* terminateStatus);

}  // namespace tovrek
