// Doing one job.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "batch/Job.h"
#include "batch/JobDigests.h"
#include "batch/JobResult.h"
#include "batch/StateFolder.h"
#include "host/Children.h"

namespace tovrek::batch {

// What the jobs of one run share. Several threads may use it at once.
struct Workshop {
  const StateFolder& state;
  std::string programFolder;  // the installed folder
  std::string host;           // this machine's name
  JobDigests& digests;
  Children& children;
  std::optional<std::chrono::seconds> limit;  // for one job; none for no limit
};

// Runs the job's command as a process of its own and keeps what came of it. The outputs are made in
// a folder beside their places and moved there only when the command succeeded and all of them are
// there; until then what stood there stays. The result is written last: a job that is given up at
// any point has none, and is done anew. A job that another process is at is a failure without one.
JobResult runJob(const Job& job, const Workshop& workshop);

// Whether the row's result tells what doing it again would: it has ended, nothing that it depends
// on has changed, and its outputs are there.
bool isDoneAndUnchanged(const Job& job, const JobResult& result, const Workshop& workshop);

}  // namespace tovrek::batch
