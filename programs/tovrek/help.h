// The help of each command, as "-help" shows it.
#pragma once

#include <string>

namespace tovrek {

std::string wrapHelp();
std::string signHelp();
std::string setInfoHelp();
std::string sdkPrepHelp();

}  // namespace tovrek
