// Running jobs through GNU parallel, here or on hosts that it reaches by ssh.
#pragma once

#include <string>
#include <vector>

#include "batch/Observer.h"
#include "batch/batch.h"
#include "batch/execution.h"

namespace tovrek::batch {

// Runs `parallel` and waits for its end. Its job log is parallel.log in the state folder. On hosts
// each row works in a temporary folder of its own, to which its files are transferred and from
// which they come back. False, with the reason, when it could not be run.
bool runOnParallel(const RunOptions& options, const std::vector<const Job*>& jobs,
                   const Workshop& workshop, const Observer& observer, ErrorText* error);

}  // namespace tovrek::batch
