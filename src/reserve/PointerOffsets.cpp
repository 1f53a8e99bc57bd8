#include "reserve/PointerOffsets.h"

#include <utility>

#include "macho/traits.h"
#include "reserve/stored_pointers.h"

namespace tovrek::macho {

template <class Arch>
void PointerOffsets::ProcessAddressOffsets(EditableByteView image, uint64_t size, bool /*flag*/,
                                           uint64_t base) {
  for (const uint64_t offset : std::exchange(offsets_, {})) {
    if (!image.contains(offset, Arch::kPointerSize)) continue;
    updateFunctionPtr<Arch>(0, size, image.bytes().data() + offset, static_cast<int64_t>(base));
  }
}

template <class Arch>
void PointerOffsets::wexUpdateAddressOffsets(EditableByteView image, const std::string& /*name*/,
                                             uint64_t size, uint64_t base) {
  ProcessAddressOffsets<Arch>(image, size, false, base);
}

#define TOVREK_INSTANTIATE(Arch)                                                              \
  template void PointerOffsets::ProcessAddressOffsets<Arch>(EditableByteView, uint64_t, bool, \
                                                            uint64_t);                        \
  template void PointerOffsets::wexUpdateAddressOffsets<Arch>(                                \
      EditableByteView, const std::string&, uint64_t, uint64_t);
TOVREK_FOR_EACH_ARCH(TOVREK_INSTANTIATE)
#undef TOVREK_INSTANTIATE

}  // namespace tovrek::macho
