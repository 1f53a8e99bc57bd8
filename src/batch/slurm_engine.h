// Running jobs as one array of a Slurm cluster whose machines share their files.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "batch/Observer.h"
#include "batch/execution.h"

namespace tovrek::batch {

// Submits the array and waits for its end. Partition, account and the like are up to sbatch's own
// variables (SBATCH_...). False, with the reason, when sbatch could not be run.
bool runOnSlurm(const std::string& table, const std::vector<const Job*>& jobs,
                std::optional<size_t> atATime, const Workshop& workshop, const Observer& observer,
                ErrorText* error);

// "0-3,7": the jobs' numbers as arrays are given, counted from 0. The jobs are in the table's
// order.
std::string arrayOf(const std::vector<const Job*>& jobs);

}  // namespace tovrek::batch
