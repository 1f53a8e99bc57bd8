#include "engine/engine_log.h"

#include <bit>
#include <cstring>

namespace tovrek::macho {

const void* addressOf(ByteView image, uint64_t offset) {
  const void* start = image.bytes().data();
  uintptr_t address = 0;
  std::memcpy(&address, &start, sizeof(address));  // clang-tidy 14 crashes on std::bit_cast here
  return std::bit_cast<const void*>(address + static_cast<uintptr_t>(offset));
}

}  // namespace tovrek::macho
