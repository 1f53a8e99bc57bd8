// Offsets of pointers in an image that await an adjustment.
#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "macho/ByteView.h"

namespace tovrek::macho {

// Each offset counts once, however often it is added.
class PointerOffsets {
 public:
  void addPointerOffset(uint64_t offset) { offsets_.insert(offset); }

  // Adjusts the pointers at all offsets that lie in the image by `base`, when they are below
  // `size` or the architecture knows no upper bound, and forgets all offsets. `flag` has no
  // meaning yet.
  template <class Arch>
  void ProcessAddressOffsets(EditableByteView image, uint64_t size, bool flag, uint64_t base);
  // The same; `name` says what the image is.
  template <class Arch>
  void wexUpdateAddressOffsets(EditableByteView image, const std::string& name, uint64_t size,
                               uint64_t base);

 private:
  std::set<uint64_t> offsets_;
};

}  // namespace tovrek::macho
