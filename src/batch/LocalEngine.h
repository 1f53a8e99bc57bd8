// Running jobs on this machine, several at a time.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <list>
#include <mutex>
#include <optional>
#include <vector>

#include "batch/Observer.h"
#include "batch/execution.h"
#include "host/parallel.h"

namespace tovrek::batch {

// How much may go on at once.
struct LocalLimits {
  size_t jobs = 1;                 // at a time
  std::optional<uint64_t> memory;  // bytes for all of them; none for no limit
  bool keepsInMemory = false;      // files of the jobs' own take memory too

  // As many as were asked for, else as processors and memory of this machine allow.
  static LocalLimits forMachine(std::optional<size_t> wanted);
};

// The memory that a job with an input of this size may need at its worst.
uint64_t memoryFor(uint64_t inputSize, const LocalLimits& limits);

class LocalEngine {
 public:
  LocalEngine(const Workshop& workshop, const LocalLimits& limits)
      : workshop_(workshop), limits_(limits) {}

  // Runs all jobs, those with the largest inputs first, and returns when all that were begun have
  // ended. After an interruption (see host/interruption.h) those under way are ended by the same
  // signal, and no more are begun.
  void run(const std::vector<const Job*>& jobs, const Observer& observer);

 private:
  struct Waiting {
    const Job* job;
    uint64_t memory;
  };
  struct Running {
    Waiting taken;
    JobResult result{};
    bool ended = false;
    std::optional<Helper> thread{};
  };

  void queue(const std::vector<const Job*>& jobs);
  bool startNext();
  void start(const Waiting& next);
  void work(Running* running);
  // Waits a little for the end of a job; answers those that have ended.
  std::list<Running> takeEnded();

  const Workshop& workshop_;
  LocalLimits limits_;
  std::deque<Waiting> waiting_;
  uint64_t memoryInUse_ = 0;
  std::mutex mutex_;  // of what follows
  std::condition_variable changed_;
  std::list<Running> running_;
};

}  // namespace tovrek::batch
