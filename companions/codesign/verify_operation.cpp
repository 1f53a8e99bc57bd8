// codesign -v.
#include "companions/codesign/Codesign.h"

namespace tovrek::codesign {

int verifyPath(const std::string& path, const Options&, const Streams& streams) {
  return failPath(path, "verification is not built yet", streams);
}

}  // namespace tovrek::codesign
