// Counts what a property list holds while it is read.
#pragma once

#include <string>

#include "host/limits.h"

namespace tovrek {

class PlistBudget {
 public:
  explicit PlistBudget(const Limits& limits) : limits_(limits) {}

  // Account for one more value that is `depth` containers deep, and for text or data. An empty
  // text while the limits hold, else which one is broken.
  std::string addValue(size_t depth) {
    if (depth > limits_.plistDepth) return "it is nested too deeply";
    return ++nodes_ > limits_.plistValues ? "it has too many values" : "";
  }
  std::string addBytes(size_t bytes) {
    bytes_ += bytes;
    return bytes_ > limits_.plistBytes ? "its texts are too long" : "";
  }

 private:
  Limits limits_;
  size_t nodes_ = 0, bytes_ = 0;
};

}  // namespace tovrek
