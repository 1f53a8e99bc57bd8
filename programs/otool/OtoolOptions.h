// The command line of `otool`.
#pragma once

#include <string>
#include <vector>

#include "host/ErrorText.h"
#include "listing/ListingOptions.h"

namespace tovrek {

struct OtoolOptions : listing::ListingOptions {
  bool universalHeaders = false;  // -f
  bool header = false;            // -h
  bool loadCommands = false;      // -l
  bool libraries = false;         // -L
  bool libraryId = false;         // -D
  bool objectiveC = false;        // -o
  bool verbose = false;           // -v, -V: names in place of numbers
  bool noLeadingLines = false;    // -X: no line with the name of the file

  // False, with the reason, for a line that makes no sense.
  bool parse(const std::vector<std::string>& arguments, ErrorText* error);
};

}  // namespace tovrek
