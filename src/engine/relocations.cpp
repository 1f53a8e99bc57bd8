#include "engine/relocations.h"

#include "engine/architectures.h"

namespace tovrek::macho {

template <class Arch>
uint64_t relocBase(const Image<typename Arch::P>& image,
                   const SegmentFacts<typename Arch::P>& facts) {
  if constexpr (requires { Arch::kRelocationBase; }) {
    constexpr RelocationBase kRule = Arch::kRelocationBase;
    const bool split = (image.header.flags & MH_SPLIT_SEGS) != 0;
    const bool writable = kRule == RelocationBase::kWritable ||
                          (kRule == RelocationBase::kFirstUnlessSplit && split) ||
                          (kRule == RelocationBase::kWritableWhenHigh && (split || facts.highBase));
    if (writable) return facts.firstWritable.value_or(0);
  }
  return image.segments.empty() ? 0 : uint64_t{image.segments.front().record.vmaddr};
}

#define TOVREK_INSTANTIATE(Arch)                                    \
  template uint64_t relocBase<Arch>(const Image<typename Arch::P>&, \
                                    const SegmentFacts<typename Arch::P>&);
TOVREK_FOR_EACH_ARCH(TOVREK_INSTANTIATE)
#undef TOVREK_INSTANTIATE

}  // namespace tovrek::macho
