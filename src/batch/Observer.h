// Whoever watches a run.
#pragma once

#include <cstddef>
#include <functional>

#include "batch/Job.h"
#include "batch/JobResult.h"

namespace tovrek::batch {

// Called by the engine's own thread alone.
struct Observer {
  std::function<void(const Job&, const JobResult&)> ended;
  // Some time has passed; `running` jobs are under way.
  std::function<void(size_t running)> waits;
};

}  // namespace tovrek::batch
