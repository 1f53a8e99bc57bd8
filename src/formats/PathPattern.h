// Patterns for paths that come with an app: whoever made it chose them.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "host/limits.h"

namespace re2 {
class RE2;
}

namespace tovrek {

// How much the patterns of one list of rules may take together, in steps of their compiled forms:
// the usual ten take some two hundred. Time for a path grows with this and its length, no faster.
struct PatternBudget {
  uint64_t steps = limitsInForce().patternSteps;
};

// A POSIX extended regular expression, searched in paths byte by byte in linear time.
class PathPattern {
 public:
  // Takes its share from the budget. Null where the pattern is none, refers back to what it has
  // matched, or takes more than 4,096 bytes or than what is left of the budget.
  static std::unique_ptr<const PathPattern> compile(const std::string& pattern,
                                                    PatternBudget* budget);
  ~PathPattern();
  PathPattern(const PathPattern&) = delete;
  PathPattern& operator=(const PathPattern&) = delete;

  bool isIn(const std::string& path) const;

 private:
  explicit PathPattern(std::unique_ptr<const re2::RE2> expression);
  std::unique_ptr<const re2::RE2> expression_;
};

}  // namespace tovrek
