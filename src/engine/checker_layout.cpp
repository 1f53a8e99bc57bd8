// What an image as a whole must have: its segments, stack, entry point and encrypted range.
#include "engine/MachOChecker.h"
#include "macho/rounding.h"

namespace tovrek::macho {
namespace {

constexpr uint32_t kPage = 4096;
constexpr uint32_t kSmallestStack = 4096;
// Flags of an executable that no loader touches: no undefined symbols, perhaps also movable.
constexpr uint32_t kStaticFlags = 0x1;
constexpr uint32_t kStaticMovableFlags = 0x200001;

}  // namespace

template <class Arch>
void MachOChecker<Arch>::checkRequiredSegments() const {
  if (!pointers_.linkEdit) throw MachORebuildErrors::kNoLinkEdit;
  if (!textSegment_) throw MachORebuildErrors::kNoText;
  if (textSegment_->initprot != (VM_PROT_READ | VM_PROT_EXECUTE)) {
    throw MachORebuildErrors::kTextProtection;
  }
  if (textSegment_->fileoff != 0) throw MachORebuildErrors::kTextOffset;
  if (textSegment_->filesize < commandsEnd()) throw MachORebuildErrors::kTextTooSmall;
}

// A register of the initial thread state, pointer-sized; 0 when the command ends before it.
template <class Arch>
uint64_t MachOChecker<Arch>::threadRegister(uint32_t index) const {
  typename P::Address value;
  const uint64_t offset = sizeof(macho_thread_command<P>) + uint64_t{index} * kPointerSize;
  if (!pointers_.thread->bytes.read(offset, &value)) return 0;
  return value;
}

template <class Arch>
void MachOChecker<Arch>::checkStack() const {
  if constexpr (requires { Arch::kStackRegister; }) {
    const uint64_t top = pointers_.thread ? threadRegister(Arch::kStackRegister) : 0;
    if (top != 0) {
      if (!stackSegment_) throw MachORebuildErrors::kNoStackSegment;
      // Stacks grow downwards, so the end of the segment is a good start.
      if (top < stackSegment_->vmaddr ||
          top > endOf(stackSegment_->vmaddr, stackSegment_->vmsize)) {
        throw MachORebuildErrors::kStackPointer;
      }
    }
  }
  if (!stackSegment_) return;
  if (stackSegment_->filesize != 0) throw MachORebuildErrors::kStackNotZeroFilled;
  if (stackSegment_->vmsize < kSmallestStack) throw MachORebuildErrors::kStackTooSmall;
}

template <class Arch>
void MachOChecker<Arch>::checkEntryPoint() const {
  if (pointers_.thread) {
    if constexpr (requires { Arch::kEntryRegister; }) {
      if (!isInside(threadRegister(Arch::kEntryRegister), textSegment_->vmaddr,
                    textSegment_->vmsize)) {
        throw MachORebuildErrors::kEntryPoint;
      }
    } else {
      throw MachORebuildErrors::kUnixThreadOnArm64;
    }
  }
  if (pointers_.main &&
      !isInside(pointers_.main->entryoff, textSegment_->fileoff, textSegment_->filesize)) {
    throw MachORebuildErrors::kEntryPoint;
  }
}

template <class Arch>
void MachOChecker<Arch>::checkStaticFlags() const {
  if (!isStatic()) return;
  if (header_.flags != kStaticFlags && header_.flags != kStaticMovableFlags) {
    throw MachORebuildErrors::kStaticFlags;
  }
}

template <class Arch>
void MachOChecker<Arch>::checkEncryption() const {
  if (!pointers_.encryption) return;
  const auto& encryption = pointers_.encryption->record;
  const bool idle = rules_.idleEncryptionInLibraries && encryption.cryptid == 0;
  if (header_.filetype != MH_EXECUTE && !idle) throw MachORebuildErrors::kEncryptionNotExecutable;
  if (encryption.cryptoff < commandsEnd()) throw MachORebuildErrors::kEncryptionOverCommands;
  if (encryption.cryptoff % kPage != 0) throw MachORebuildErrors::kEncryptionOffsetUnaligned;
  if (encryption.cryptsize % kPage != 0) throw MachORebuildErrors::kEncryptionSizeUnaligned;
  const uint64_t end = uint64_t{encryption.cryptoff} + encryption.cryptsize;
  for (const Segment& segment : segments_) {
    if (isInside(encryption.cryptoff, segment.fileoff, segment.filesize) &&
        end > endOf(segment.fileoff, segment.filesize)) {
      throw MachORebuildErrors::kEncryptionSpansSegments;
    }
  }
}

#define TOVREK_INSTANTIATE(Arch)                                   \
  template void MachOChecker<Arch>::checkRequiredSegments() const; \
  template void MachOChecker<Arch>::checkStack() const;            \
  template void MachOChecker<Arch>::checkEntryPoint() const;       \
  template void MachOChecker<Arch>::checkStaticFlags() const;      \
  template void MachOChecker<Arch>::checkEncryption() const;       \
  template uint64_t MachOChecker<Arch>::threadRegister(uint32_t) const;
TOVREK_FOR_EACH_ARCH(TOVREK_INSTANTIATE)

}  // namespace tovrek::macho
