#include "reserve/stored_pointers.h"

#include <cstring>

#include "macho/traits.h"

namespace tovrek::macho {

void CollectObjCAddressOffsets(uint32_t /*cputype*/, uint32_t /*cpusubtype*/,
                               const std::string& /*name*/, ByteView /*image*/) {}

template <class Arch>
std::byte* updateFunctionPtr(uint64_t low, uint64_t high, std::byte* slot, int64_t delta) {
  typename Arch::Integer value;
  std::memcpy(&value, slot, sizeof(value));
  constexpr bool kBounded = (Arch::kCpuType & ~kCpuArch64) != kCpuArm;
  if (low <= value && (!kBounded || value < high)) {
    value = static_cast<typename Arch::Integer>(value + static_cast<uint64_t>(delta));
    std::memcpy(slot, &value, sizeof(value));
  }
  return slot + sizeof(value);
}

template <class Arch>
uint32_t wexClassProcess(ByteView image, const std::string& name, uint64_t /*size*/) {
  macho_header<typename Arch::P> header;
  if (!image.read(0, &header)) return 0;
  CollectObjCAddressOffsets(header.cputype, header.cpusubtype, name, image);
  return header.cpusubtype;
}

#define TOVREK_INSTANTIATE(Arch)                                                        \
  template std::byte* updateFunctionPtr<Arch>(uint64_t, uint64_t, std::byte*, int64_t); \
  template uint32_t wexClassProcess<Arch>(ByteView, const std::string&, uint64_t);
TOVREK_FOR_EACH_ARCH(TOVREK_INSTANTIATE)
#undef TOVREK_INSTANTIATE

}  // namespace tovrek::macho
