#include "batch/LocalEngine.h"

#include <algorithm>
#include <chrono>

#include "host/files.h"
#include "host/host_info.h"
#include "host/interruption.h"
#include "host/resources.h"

namespace tovrek::batch {
namespace {

constexpr uint64_t kMegabyte = uint64_t{1} << 20;
// Of a command and of the programs that it starts, whatever the app.
constexpr uint64_t kBaseMemory = 48 * kMegabyte;
// The app unpacked, packed again, and packed once more into the package; apps pack to two thirds.
constexpr uint64_t kCopiesInMemory = 4;
constexpr auto kPatience = std::chrono::milliseconds(200);
// How far to look for a job that fits when the next one does not.
constexpr size_t kLookAhead = 64;

}  // namespace

LocalLimits LocalLimits::forMachine(std::optional<size_t> wanted) {
  LocalLimits limits;
  limits.jobs = wanted.value_or(processorCount());
  // Who names a number has thought of memory.
  if (wanted) return limits;
  const auto available = availableMemory();
  if (available) limits.memory = *available / 5 * 4;
  const auto scratch = systemTemporaryFolder();
  limits.keepsInMemory = scratch && isInMemory(*scratch);
  return limits;
}

uint64_t memoryFor(uint64_t inputSize, const LocalLimits& limits) {
  return kBaseMemory + (limits.keepsInMemory ? inputSize * kCopiesInMemory : inputSize / 4);
}

void LocalEngine::queue(const std::vector<const Job*>& jobs) {
  for (const Job* job : jobs) {
    const uint64_t size = fileSize(job->input()).value_or(0);
    waiting_.push_back({job, memoryFor(size, limits_)});
  }
  // A large one that begins last would run alone at the end.
  std::ranges::stable_sort(waiting_, std::greater<>(), &Waiting::memory);
}

void LocalEngine::work(Running* running) {
  JobResult result = runJob(*running->taken.job, workshop_);
  const std::lock_guard lock(mutex_);
  running->result = std::move(result);
  running->ended = true;
  changed_.notify_one();
}

void LocalEngine::start(const Waiting& next) {
  Running* running = nullptr;
  {
    const std::lock_guard lock(mutex_);
    running = &running_.emplace_back(Running{next});
  }
  memoryInUse_ += next.memory;
  running->thread = startHelper([this, running] { work(running); });
  // Without threads one after the other.
  if (!running->thread) work(running);
}

// False when nothing that waits may run beside what runs.
bool LocalEngine::startNext() {
  if (waiting_.empty() || running_.size() >= limits_.jobs) return false;
  const auto fits = [&](const Waiting& each) {
    // One alone is always tried.
    if (running_.empty()) return true;
    return !limits_.memory || memoryInUse_ + each.memory <= *limits_.memory;
  };
  const auto end = waiting_.begin() + static_cast<ptrdiff_t>(std::min(waiting_.size(), kLookAhead));
  const auto next = std::find_if(waiting_.begin(), end, fits);
  if (next == end) return false;
  const Waiting taken = *next;
  waiting_.erase(next);
  start(taken);
  return true;
}

std::list<LocalEngine::Running> LocalEngine::takeEnded() {
  std::list<Running> ended;
  std::unique_lock lock(mutex_);
  const auto isOver = [](const Running& each) { return each.ended; };
  changed_.wait_for(lock, kPatience, [&] { return std::ranges::any_of(running_, isOver); });
  for (auto each = running_.begin(); each != running_.end();) {
    const auto next = std::next(each);
    if (each->ended) ended.splice(ended.end(), running_, each);
    each = next;
  }
  return ended;
}

void LocalEngine::run(const std::vector<const Job*>& jobs, const Observer& observer) {
  queue(jobs);
  bool isInterrupted = false;
  while (!waiting_.empty() || !running_.empty()) {
    if (!isInterrupted && interruption() != 0) {
      isInterrupted = true;
      waiting_.clear();
      workshop_.children.stop(interruption());
    }
    while (startNext()) {
    }
    for (Running& each : takeEnded()) {
      if (each.thread) each.thread->join();
      memoryInUse_ -= each.taken.memory;
      observer.ended(*each.taken.job, each.result);
    }
    observer.waits(running_.size());
  }
}

}  // namespace tovrek::batch
