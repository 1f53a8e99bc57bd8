#include "archive/ordered_work.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "host/parallel.h"

namespace tovrek::archive {
namespace {

// All threads take jobs in order. The one that finishes the job whose turn it is delivers it, and
// those behind it that are done; the others go on meanwhile, so nobody is woken for a delivery.
class Pipeline {
 public:
  explicit Pipeline(const OrderedWork& jobs) : jobs_(jobs), done_(jobs.count, 0) {}

  bool run() {
    std::vector<Helper> helpers;
    for (size_t i = 1; i < std::min(workerCount(), jobs_.count); ++i) {
      auto helper = startHelper([this, i] { takeJobs(i); });
      if (!helper) break;  // the ones that run do it all
      helpers.push_back(std::move(*helper));
    }
    takeJobs(0);
    for (Helper& helper : helpers) helper.join();
    return !stopped_;
  }

 private:
  // The others would wait forever for what an exception kept this one from doing.
  void takeJobs(size_t worker) noexcept {
    std::unique_lock lock(mutex_);
    for (;;) {
      while (!stopped_ && next_ < jobs_.count && !hasRoom()) {
        ++waiting_;
        roomChanged_.wait(lock);
        --waiting_;
      }
      if (stopped_ || next_ >= jobs_.count) return;
      const size_t job = next_++;
      if (isLarge(job)) {
        largeAtWork_ = true;
      } else {
        held_ += jobs_.weight(job);
      }
      lock.unlock();
      jobs_.work(worker, job);
      lock.lock();
      done_[job] = 1;
      if (!delivering_) deliverDone(&lock);
    }
  }

  // A job larger than the window is let in beside the others, one at a time.
  bool isLarge(size_t job) const { return jobs_.weight(job) > kMemoryWindow; }
  bool hasRoom() const {
    return isLarge(next_) ? !largeAtWork_ : held_ + jobs_.weight(next_) <= kMemoryWindow;
  }

  void deliverDone(std::unique_lock<std::mutex>* lock) {
    delivering_ = true;
    for (; !stopped_ && awaited_ < jobs_.count && done_[awaited_] != 0; ++awaited_) {
      lock->unlock();
      const bool goOn = jobs_.deliver(awaited_);
      lock->lock();
      if (isLarge(awaited_)) {
        largeAtWork_ = false;
      } else {
        held_ -= jobs_.weight(awaited_);
      }
      if (!goOn) stopped_ = true;
      if (waiting_ != 0) roomChanged_.notify_all();
    }
    delivering_ = false;
  }

  const OrderedWork& jobs_;
  std::vector<char> done_;
  std::mutex mutex_;
  std::condition_variable roomChanged_;
  size_t waiting_ = 0;  // threads that wait for room
  size_t next_ = 0;
  size_t awaited_ = 0;
  uint64_t held_ = 0;
  bool largeAtWork_ = false;
  bool delivering_ = false;
  bool stopped_ = false;
};

}  // namespace

size_t workerCount() {
  constexpr size_t kMost = 8;
  // Asked once: callers keep something for each worker.
  static const size_t count = std::clamp<size_t>(std::thread::hardware_concurrency(), 1, kMost);
  return count;
}

bool runInOrder(const OrderedWork& jobs) {
  return Pipeline(jobs).run();
}

}  // namespace tovrek::archive
