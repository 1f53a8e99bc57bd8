// A table made ready to be run.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "batch/Job.h"
#include "batch/batch.h"
#include "batch/execution.h"
#include "batch/judging.h"

namespace tovrek::batch {

// The jobs of a table, with all its faults and the number of its rows, sound or not. None, told on
// the console, when the table cannot be read.
std::optional<std::vector<Job>> readJobs(const std::string& table, Faults* faults,
                                         const Console& console, size_t* rows);

// Prints all faults, their number and how many of the rows are sound, and answers the status to end
// with.
int refuseFaults(const Faults& faults, size_t rows, const Console& console);

// For each job the result that it has already and that counts: none for those that are to be run.
// Failures count only where `resume` is set.
std::vector<std::optional<JobResult>> earlierResults(const std::vector<Job>& jobs, bool resume,
                                                     const Workshop& workshop);

// The folder that the running program, and its Tovrek, lie in.
std::string installedFolder();

}  // namespace tovrek::batch
