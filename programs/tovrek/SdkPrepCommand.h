#pragma once

#include <string>

#include "programs/tovrek/WexToolkitCommand.h"

namespace tovrek {

// Packages an app that was built with the SDK.
class SdkPrepCommand : public WexToolkitCommand {
 public:
  SdkPrepCommand();
  static std::string helpText();

 protected:
  bool finish(Request& request, ErrorText* error) override;
  bool refuseUnknown(const std::string& argument, ErrorText* error) override;
};

}  // namespace tovrek
