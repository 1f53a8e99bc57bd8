// Adjusting pointers stored in an image, in this machine's byte order whatever the architecture.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "macho/ByteView.h"

namespace tovrek::macho {

// Adds `delta` to the pointer stored at `slot` when it is at least `low` and (but for the two arm
// architectures) below `high`. Answers the next slot. The caller vouches for the slot's bytes.
template <class Arch>
std::byte* updateFunctionPtr(uint64_t low, uint64_t high, std::byte* slot, int64_t delta);

// Does nothing yet: no class list is rewritten.
void CollectObjCAddressOffsets(uint32_t cputype, uint32_t cpusubtype, const std::string& name,
                               ByteView image);
// Hands the image to CollectObjCAddressOffsets and answers its cpusubtype; 0 when it has no header.
template <class Arch>
uint32_t wexClassProcess(ByteView image, const std::string& name, uint64_t size);

}  // namespace tovrek::macho
