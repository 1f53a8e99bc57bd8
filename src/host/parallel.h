// Spreading work over the processors.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <thread>
#include <utility>

namespace tovrek {

// A thread that is waited for before its owner goes, an exception included.
class Helper {
 public:
  explicit Helper(std::function<void()> work) : thread_(std::move(work)) {}
  Helper(Helper&&) = default;
  Helper& operator=(Helper&& other) {
    join();
    thread_ = std::move(other.thread_);
    return *this;
  }
  ~Helper() { join(); }

  void join() {
    if (thread_.joinable()) thread_.join();
  }

 private:
  std::thread thread_;
};

// A thread that signals never interrupt: they are the business of the one that started it. None
// when there are no more threads to be had.
std::optional<Helper> startHelper(std::function<void()> work);

// Calls `work(begin, end)` for consecutive parts of [0, count), each of `grain` items (the last may
// be shorter), from as many threads as the machine has processors. Returns when all is done.
// With a single part everything happens in the calling thread.
void forEachPart(size_t count, size_t grain, const std::function<void(size_t, size_t)>& work);

}  // namespace tovrek
