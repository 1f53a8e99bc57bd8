#include "programs/xcode-select/host_packages.h"

#include "launch/programs.h"

namespace tovrek {

std::vector<std::string> missingPackages() {
  std::vector<std::string> missing;
  // Each of these programs has a package of its own name.
  for (const char* name : {"grep", "openssl", "unzip", "zip"}) {
    if (!launch::findHostProgram(name)) missing.emplace_back(name);
  }
  return missing;
}

}  // namespace tovrek
