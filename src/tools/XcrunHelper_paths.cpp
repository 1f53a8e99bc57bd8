// Apart from the run, as no program needs it.
#include "host/files.h"
#include "tools/XcrunHelper.h"

namespace tovrek {

std::optional<std::string> XcrunHelper::pathResolved(const std::string& path) {
  return realPath(path);
}

}  // namespace tovrek
