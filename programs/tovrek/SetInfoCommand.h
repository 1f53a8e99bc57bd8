#pragma once

#include <string>

#include "programs/tovrek/WexToolkitCommand.h"

namespace tovrek {

// Changes the information that an existing .wex package carries.
class SetInfoCommand : public WexToolkitCommand {
 public:
  SetInfoCommand();
};

}  // namespace tovrek
