// Stand-in for Apple's `nm`: the symbols of Mach-O files.
#pragma once

#include <string>
#include <vector>

namespace tovrek {

// Runs one command line and answers the exit status: 1 for wrong usage, a file that cannot be
// read or is no Mach-O file, an architecture that is not there, and a damaged image, of which the
// symbols that can be read are listed all the same. Unlike the original it shows every slice of a
// universal file on any host.
int runNm(const std::vector<std::string>& arguments);

}  // namespace tovrek
