// The user's app, unpacked.
#pragma once

#include <memory>

#include "package/TemporaryDirectory.h"
#include "package/UnzippedIpa.h"

namespace tovrek {

struct UnpackedInput {
  std::shared_ptr<TemporaryDirectory> directory;
  std::shared_ptr<UnzippedIpa> ipa;
};

}  // namespace tovrek
