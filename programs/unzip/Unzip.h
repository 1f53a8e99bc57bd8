// The program unzip.
#pragma once

#include <string>
#include <vector>

namespace tovrek::unzip {

// Runs with the arguments after the program's name; gives the exit status.
int runUnzipProgram(const std::vector<std::string>& arguments);

}  // namespace tovrek::unzip
