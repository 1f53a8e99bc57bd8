// Where the memory of a program comes from.
#pragma once

#include <cstdlib>  // tells which C library it is

#include "host/last_resort.h"

#if defined(__has_feature)
#define TOVREK_HAS_FEATURE(name) __has_feature(name)
#else
#define TOVREK_HAS_FEATURE(name) 0
#endif

namespace tovrek {

// Whether it can be watched: that needs the C library of GNU and no sanitizer.
#if defined(__GLIBC__) && !defined(__SANITIZE_ADDRESS__) && \
    !TOVREK_HAS_FEATURE(address_sanitizer) && !TOVREK_HAS_FEATURE(memory_sanitizer)
#define TOVREK_WATCHES_ALLOCATIONS 1
#else
#define TOVREK_WATCHES_ALLOCATIONS 0
#endif
inline constexpr bool kWatchesAllocations = TOVREK_WATCHES_ALLOCATIONS != 0;

// From now on a C library that gets no memory ends the program with these words. Several libraries
// do not look at what they get, or take a failure for the end of the input: half a document would
// be read as a whole one. In C++ std::bad_alloc is thrown as ever; it has the same end where it
// leaves a helper thread. Where nothing can be watched libraries get what the system gives.
void watchAllocations(const LastWords& words);

}  // namespace tovrek
