#pragma once

#include <string>

#include "programs/tovrek/WexToolkitCommand.h"

namespace tovrek {

// Signs an .ipa, or the app inside a .wex package, with another identity.
class SignCommand : public WexToolkitCommand {
 public:
  SignCommand();
};

}  // namespace tovrek
