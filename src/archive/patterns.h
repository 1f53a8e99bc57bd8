// Names that a user gives with wildcards.
#pragma once

#include <string>
#include <vector>

namespace tovrek::archive {

// Whether the pattern matches the name of an entry; "*" and "?" match "/" too, as archive programs
// have it.
bool matches(const std::string& pattern, const std::string& name);
bool matchesAny(const std::vector<std::string>& patterns, const std::string& name);

}  // namespace tovrek::archive
