#include "engine/check_start.h"

#include "engine/architectures.h"
#include "macho/rounding.h"

namespace tovrek::macho {
namespace {

using Errors = MachORebuildErrors;

constexpr uint32_t kSmallestStack = 4096;

// A register of the initial thread state, pointer-sized; 0 when the command ends before it.
template <class P>
uint64_t threadRegister(const Image<P>& image, uint32_t index) {
  typename P::Address value;
  const uint64_t offset = sizeof(macho_thread_command<P>) + uint64_t{index} * P::kPointerSize;
  if (!image.pointers.thread->bytes.read(offset, &value)) return 0;
  return value;
}

}  // namespace

template <class Arch>
void checkStack(const Image<typename Arch::P>& image, const SegmentFacts<typename Arch::P>& facts) {
  const auto& stack = facts.stack;
  if constexpr (requires { Arch::kStackRegister; }) {
    const uint64_t top = image.pointers.thread ? threadRegister(image, Arch::kStackRegister) : 0;
    if (top != 0) {
      if (!stack) throw Errors::kNoStackSegment;
      // Stacks grow downwards, so the end of the segment is a good start.
      if (top < stack->vmaddr || top > endOf(stack->vmaddr, stack->vmsize)) {
        throw Errors::kStackPointer;
      }
    }
  }
  if (!stack) return;
  if (stack->filesize != 0) throw Errors::kStackNotZeroFilled;
  if (stack->vmsize < kSmallestStack) throw Errors::kStackTooSmall;
}

template <class Arch>
void checkEntryPoint(const Image<typename Arch::P>& image,
                     const SegmentFacts<typename Arch::P>& facts) {
  const auto& text = *facts.text;
  if (image.pointers.thread) {
    if constexpr (requires { Arch::kEntryRegister; }) {
      const uint64_t entry = threadRegister(image, Arch::kEntryRegister);
      if (!isInside(entry, text.vmaddr, text.vmsize)) throw Errors::kEntryPoint;
    } else {
      throw Errors::kUnixThreadOnArm64;
    }
  }
  const auto& main = image.pointers.main;
  if (main && !isInside(main->entryoff, text.fileoff, text.filesize)) throw Errors::kEntryPoint;
}

#define TOVREK_INSTANTIATE(Arch)                                         \
  template void checkStack<Arch>(const Image<typename Arch::P>&,         \
                                 const SegmentFacts<typename Arch::P>&); \
  template void checkEntryPoint<Arch>(const Image<typename Arch::P>&,    \
                                      const SegmentFacts<typename Arch::P>&);
TOVREK_FOR_EACH_ARCH(TOVREK_INSTANTIATE)
#undef TOVREK_INSTANTIATE

}  // namespace tovrek::macho
