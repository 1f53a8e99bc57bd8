// The last words of a run.
#pragma once

#include <string>

#include "converter/Request.h"
#include "host/Streams.h"
#include "log/WrapperLogger.h"

namespace tovrek {

// Writes an error text and the separator to standard error and logs both as an error.
void reportError(const std::string& text, const WrapperLogger& log, const Streams& streams);

// Prints the result of a conversion and logs the same. `error` may be null. After a success: 0;
// after a failure -2, or -1 and nothing printed when there is no error text.
int writeOutResultWithErrorStr(bool success, const std::string* error, const Request& request,
                               const WrapperLogger& log, const Streams& streams);

}  // namespace tovrek
