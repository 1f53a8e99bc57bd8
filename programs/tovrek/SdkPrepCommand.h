#pragma once

#include <string>

#include "programs/tovrek/WexToolkitCommand.h"

namespace tovrek {

// Packages an app that was built with the SDK.
class SdkPrepCommand : public WexToolkitCommand {
 public:
  SdkPrepCommand();

 protected:
  bool refuseUnknown(const std::string& argument, ErrorText* error) override;
};

}  // namespace tovrek
