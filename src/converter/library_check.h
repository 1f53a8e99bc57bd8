// Whether what is going to be inserted is ours.
#pragma once

#include <string>

#include "host/ErrorText.h"

namespace tovrek::converter {

// The binary carries our distribution signature.
bool VerifyOrvaneDylib(const std::string& path, ErrorText* error);
// It exists and carries it.
bool checkOrvaneDylib(const std::string& path, ErrorText* error);
bool checkOrvaneLoggerDylib(const std::string& path, ErrorText* error);

}  // namespace tovrek::converter
