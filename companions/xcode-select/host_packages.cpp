#include "companions/xcode-select/host_packages.h"

#include <set>

#include "companions/launch/programs.h"

namespace tovrek {

std::vector<std::string> missingPackages() {
  std::set<std::string> missing;
  const auto need = [&](bool present, const char* package) {
    if (!present) missing.insert(package);
  };
  for (const char* name : {"openssl", "unzip", "zip", "grep"}) {
    need(launch::findHostProgram({name}).has_value(), name);
  }
  for (const char* name : {"objdump", "nm"}) {
    need(launch::findLlvmTool(name).has_value(), "llvm");
  }
  return {missing.begin(), missing.end()};
}

}  // namespace tovrek
