#include "host/allocation.h"

#include <cstddef>
#include <cstdlib>
#include <new>

#if TOVREK_WATCHES_ALLOCATIONS

// A program's own functions of these names are called by all libraries, the C library included,
// which gives its allocator by other names for this purpose.
// NOLINTBEGIN(bugprone-reserved-identifier, cppcoreguidelines-no-malloc)
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);

void* malloc(size_t size) noexcept {
  void* const memory = __libc_malloc(size);
  if (memory == nullptr) tovrek::endWithoutMemory();
  return memory;
}

void* calloc(size_t count, size_t size) noexcept {
  void* const memory = __libc_calloc(count, size);
  if (memory == nullptr) tovrek::endWithoutMemory();
  return memory;
}

void* realloc(void* old, size_t size) noexcept {
  void* const memory = __libc_realloc(old, size);
  // Of no size it is given back, and that is no failure.
  if (memory == nullptr && size != 0) tovrek::endWithoutMemory();
  return memory;
}
}

// All other forms come down to this one.
void* operator new(size_t size) {
  void* const memory = __libc_malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
// NOLINTEND(bugprone-reserved-identifier, cppcoreguidelines-no-malloc)

#endif

namespace tovrek {

void watchAllocations(const LastWords& words) {
  setLastWords(words);
}

}  // namespace tovrek
