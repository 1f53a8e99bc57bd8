// The program zip.
#pragma once

#include <string>
#include <vector>

namespace tovrek::zip {

// Runs with the arguments after the program's name; gives the exit status. An archive named by
// $TOVREK_PACKED_SOURCE may give packed forms of unchanged files.
int runZipProgram(const std::vector<std::string>& arguments);

}  // namespace tovrek::zip
