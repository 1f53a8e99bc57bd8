#include "converter/Request.h"

#include "host/installation.h"

namespace tovrek {

Request::Request() : logFile(defaultLogFile()) {}

}  // namespace tovrek
