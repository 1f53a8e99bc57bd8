#include "converter/Request.h"

#include "host/host_info.h"
#include "host/paths.h"

namespace tovrek {

Request::Request() : logFile(joinPath(programFolder(), "logs/Orvane.log")) {}

}  // namespace tovrek
