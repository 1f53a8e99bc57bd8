// nm's command line in the words of llvm-nm.
#pragma once

#include <string>
#include <vector>

namespace tovrek {

// All slices are listed unless "-arch NAME" chooses one; the other options are llvm-nm's own.
// Paths in which "\'" stands for an apostrophe are mended where only that gives a file.
std::vector<std::string> nmArguments(const std::vector<std::string>& arguments);

}  // namespace tovrek
