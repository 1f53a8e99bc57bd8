// Work in parallel whose results are used in order.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

namespace tovrek::archive {

// The most bytes that jobs hold in memory at a time, besides one job that needs more by itself.
inline constexpr uint64_t kMemoryWindow = 32 << 20;

struct OrderedWork {
  size_t count = 0;
  // The bytes of memory that job `i` holds until it is delivered.
  std::function<uint64_t(size_t i)> weight{};
  // Does job `i`; called from several threads, for jobs in order. `worker` tells the threads apart
  // and is below workerCount().
  std::function<void(size_t worker, size_t i)> work{};
  // Uses the result; called strictly in order and never twice at a time, but from any thread. False
  // ends everything: jobs that were not begun are left.
  std::function<bool(size_t i)> deliver{};
};

// How many threads work at most: one for each processor that this process may use.
size_t workerCount();

// Whether all jobs were delivered. The result does not depend on the number of processors.
bool runInOrder(const OrderedWork& jobs);

}  // namespace tovrek::archive
