// One run of the toolkit.
#pragma once

#include <string>
#include <vector>

namespace tovrek {

// Exit statuses. Unpacking that fails ends with success, as scripts of users expect.
inline constexpr int kExitSuccess = 0;
inline constexpr int kExitBadInput = -1;
inline constexpr int kExitConversionFailed = -2;

// Runs one command. `arguments` has the program's name in front. The exit status.
int runToolkit(const std::vector<std::string>& arguments);

}  // namespace tovrek
