#include "batch/slurm_engine.h"

#include <fmt/format.h>

#include "batch/engine_process.h"
#include "formats/Digest.h"
#include "host/files.h"
#include "host/interruption.h"
#include "host/paths.h"
#include "host/process.h"

namespace tovrek::batch {

std::string arrayOf(const std::vector<const Job*>& jobs) {
  std::string array;
  for (size_t i = 0; i < jobs.size();) {
    size_t last = i;
    while (last + 1 < jobs.size() && jobs[last + 1]->row == jobs[last]->row + 1) ++last;
    if (!array.empty()) array += ',';
    array += std::to_string(jobs[i]->row - 1);
    if (last != i) array += fmt::format("-{}", jobs[last]->row - 1);
    i = last + 1;
  }
  return array;
}

bool runOnSlurm(const std::string& table, const std::vector<const Job*>& jobs,
                std::optional<size_t> atATime, const Workshop& workshop, const Observer& observer,
                ErrorText* error) {
  const std::string& state = workshop.state.path();
  const std::string script = joinPath(state, "slurm.sh");
  const std::string outputs = joinPath(state, "slurm");
  // All rows of this table, and of no other.
  const std::string name =
      "batch-" + hexLower(digestOf(DigestAlgorithm::kSha256, state)).substr(0, 12);
  const std::string text =
      fmt::format("#!/bin/sh\nexec {} \"$SLURM_ARRAY_TASK_ID\"\n", rowCommand(table, workshop));
  if (!createDirectories(outputs, error) || !writeFileAtomically(script, text, error) ||
      !clearResults(jobs, workshop.state, error)) {
    return false;
  }
  EngineRows rows(jobs, observer, [&](const Job& job) { return workshop.state.result(job); });
  const std::string limit = atATime ? fmt::format("%{}", *atATime) : "";
  const bool ran = runEngine(
      {"sbatch", "--wait", "--job-name=" + name, "--array=" + arrayOf(jobs) + limit,
       "--chdir=" + state, "--output=" + joinPath(outputs, "%a.txt"), script},
      "", workshop, [&] { rows.poll(); }, error);
  // sbatch only waits: the array goes on without it.
  if (interruption() != 0) runQuietly({.argv = {"scancel", "--name=" + name}});
  if (!ran) return false;
  rows.giveUp(fmt::format("Slurm has left no result; see {} and {}", joinPath(state, "engine.txt"),
                          outputs));
  return true;
}

}  // namespace tovrek::batch
