// How much a document from outside may hold. Files of real apps stay far below; the limits keep
// a hostile file of a few kilobytes from taking all memory or the whole stack.
#pragma once

#include <cstddef>

namespace tovrek {

struct PlistLimits {
  // Values, keys included, with what is referred to several times counted each time.
  size_t nodes = 1'000'000;
  // Arrays and dictionaries inside each other.
  size_t depth = 512;
  // Bytes of all texts and data together, counted like the nodes.
  size_t bytes = size_t{1} << 30;
};

}  // namespace tovrek
