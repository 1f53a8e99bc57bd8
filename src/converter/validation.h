// The check of the request as a whole, before anything is unpacked.
#pragma once

#include <string_view>

#include "context/RunContext.h"
#include "converter/Request.h"
#include "host/ErrorText.h"

namespace tovrek {

// The first failure is left in the slot. May change the request: a log level out of range becomes
// 2, blanks leave a certificate digest, an output path without extension gets ".wex", an update
// package sets isUpdate.
bool validate(Request& request, const RunContext& context, ErrorText* error);

// Whether the text has at least one hexadecimal digit.
bool checkIfStringisHex(std::string_view text);

}  // namespace tovrek
