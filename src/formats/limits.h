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

// Of documents that are kept as trees, such as manifests and policies.
struct XmlLimits {
  size_t bytes = size_t{64} << 20;
  // Where the encoding is another than one of ASCII with more, in which marks cannot be told from
  // other bytes.
  size_t wideBytes = size_t{512} << 10;
  // Those that start and end an element, counted each.
  size_t tags = 2'000'000;
};

}  // namespace tovrek
