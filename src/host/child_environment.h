// What variables a child gets.
#pragma once

#include <string>
#include <vector>

#include "host/process.h"

namespace tovrek {

// The variables of this process, as "NAME=value", without those by which zip and unzip take hidden
// options, with the child's PATH and locale and the command's own on top. Passwords and pins are
// among them only where the program that is run signs or asks a keychain.
std::vector<std::string> childEnvironment(const Command& command);

}  // namespace tovrek
