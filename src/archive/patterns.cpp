#include "archive/patterns.h"

#include <fnmatch.h>

#include <algorithm>

namespace tovrek::archive {

bool matches(const std::string& pattern, const std::string& name) {
  return ::fnmatch(pattern.c_str(), name.c_str(), 0) == 0;
}

bool matchesAny(const std::vector<std::string>& patterns, const std::string& name) {
  return std::ranges::any_of(patterns,
                             [&](const std::string& pattern) { return matches(pattern, name); });
}

}  // namespace tovrek::archive
