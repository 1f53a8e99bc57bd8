// Spreading work over the processors.
#pragma once

#include <cstddef>
#include <functional>

namespace tovrek::signing {

// Calls `work(begin, end)` for consecutive parts of [0, count), each of `grain` items (the last may
// be shorter), from as many threads as the machine has processors. Returns when all is done.
// With a single part everything happens in the calling thread.
void forEachPart(size_t count, size_t grain, const std::function<void(size_t, size_t)>& work);

}  // namespace tovrek::signing
