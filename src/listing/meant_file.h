// Paths that a shell has garbled.
#pragma once

#include <string>

namespace tovrek::listing {

// The file that a path means: itself, or, where nothing is there, the same with each "\'" read as
// an apostrophe. Callers that put a path between double quotes in a shell often write such a
// backslash, which the shell then leaves in.
std::string meantFile(const std::string& path);

}  // namespace tovrek::listing
