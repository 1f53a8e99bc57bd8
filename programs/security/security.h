// The program that manages keychains and reads signed messages.
#pragma once

#include <string>
#include <vector>

namespace tovrek::security {

// Runs one command; `arguments` come without the program's name. Answers the exit status: 0, 1
// for failures of the command, 2 for wrong usage, else the low byte of a keychain status.
int runSecurity(const std::vector<std::string>& arguments);

}  // namespace tovrek::security
