// The programs of this host that the toolkit and its companions run.
#pragma once

#include <string>
#include <vector>

namespace tovrek {

// The Debian packages of those programs that are not installed, sorted, each once.
std::vector<std::string> missingPackages();

}  // namespace tovrek
