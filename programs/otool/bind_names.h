// The symbols that the loader puts into pointers of an image with compressed loader information.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "macho/ByteView.h"

namespace tovrek::otool {

struct BindNames {
  // Address of the pointer and name, sorted by address.
  std::vector<std::pair<uint64_t, std::string_view>> places;
  // Of images with threaded binds, whose pointers carry numbers into this table instead.
  std::vector<std::string_view> ordinals;
  bool isThreaded = false;
};

// Reads a bind stream (see <mach-o/loader.h>), up to where it is damaged. At most `limit` places
// are noted: more than the image has pointers is damage too.
BindNames readBindNames(macho::ByteView opcodes, std::span<const uint64_t> segmentAddresses,
                        uint32_t pointerSize, uint64_t limit);

}  // namespace tovrek::otool
