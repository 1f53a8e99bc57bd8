#include "companions/archive/ordered_work.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

namespace tovrek::archive {
namespace {

class Pipeline {
 public:
  explicit Pipeline(const OrderedWork& jobs) : jobs_(jobs), done_(jobs.count, 0) {}

  bool run() {
    std::vector<std::thread> helpers;
    for (size_t i = 0; i < std::min(workerCount(), jobs_.count); ++i) {
      try {
        helpers.emplace_back([this, i] { takeJobs(i); });
      } catch (const std::system_error&) {
        break;  // no more threads to be had
      }
    }
    const bool complete = helpers.empty() ? doAlone() : deliverAll();
    for (std::thread& helper : helpers) helper.join();
    return complete;
  }

 private:
  bool doAlone() {
    for (size_t i = 0; i < jobs_.count; ++i) {
      jobs_.work(0, i);
      if (!jobs_.deliver(i)) return false;
    }
    return true;
  }

  void takeJobs(size_t worker) {
    std::unique_lock lock(mutex_);
    for (;;) {
      roomChanged_.wait(lock, [this] { return stopped_ || next_ >= jobs_.count || hasRoom(); });
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
      if (job == awaited_) jobDone_.notify_one();
    }
  }

  // A job larger than the window is let in beside the others, one at a time.
  bool isLarge(size_t job) const { return jobs_.weight(job) > kMemoryWindow; }
  bool hasRoom() const {
    return isLarge(next_) ? !largeAtWork_ : held_ + jobs_.weight(next_) <= kMemoryWindow;
  }

  bool deliverAll() {
    std::unique_lock lock(mutex_);
    for (awaited_ = 0; awaited_ < jobs_.count; ++awaited_) {
      jobDone_.wait(lock, [this] { return done_[awaited_] != 0; });
      lock.unlock();
      const bool goOn = jobs_.deliver(awaited_);
      lock.lock();
      const bool wasFull = next_ < jobs_.count && !hasRoom();
      if (isLarge(awaited_)) {
        largeAtWork_ = false;
      } else {
        held_ -= jobs_.weight(awaited_);
      }
      stopped_ = !goOn;
      if (wasFull || stopped_) roomChanged_.notify_all();
      if (stopped_) return false;
    }
    return true;
  }

  const OrderedWork& jobs_;
  std::vector<char> done_;
  std::mutex mutex_;
  std::condition_variable jobDone_;
  std::condition_variable roomChanged_;
  size_t next_ = 0;
  size_t awaited_ = 0;
  uint64_t held_ = 0;
  bool largeAtWork_ = false;
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
