#pragma once

#include <string>

#include "programs/tovrek/WexToolkitCommand.h"

namespace tovrek {

// Wraps a store or enterprise app into a managed app and its package.
class WrapCommand : public WexToolkitCommand {
 public:
  WrapCommand();

 private:
  bool packageAppRequested_ = false;
};

}  // namespace tovrek
