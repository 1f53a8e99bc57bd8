#include "batch/preparation.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "batch/Progress.h"
#include "host/host_info.h"
#include "host/parallel.h"

namespace tovrek::batch {

std::optional<std::vector<Job>> readJobs(const std::string& table, Faults* faults,
                                         const Console& console, size_t* rows) {
  ErrorText error;
  const auto read = readTable(table, faults, &error);
  if (!read) {
    console.streams.error(fmt::format("Batch: {}: {}\n", oneLine(table), oneLine(error.text())));
    return std::nullopt;
  }
  *rows = read->rowCount;
  return makeJobs(*read, faults);
}

int refuseFaults(const Faults& faults, size_t rows, const Console& console) {
  Faults sorted = faults;
  std::ranges::stable_sort(sorted, {}, &Fault::row);
  for (const Fault& fault : sorted) console.streams.error(oneLine(fault.text()) + "\n");
  std::set<size_t> faulty;
  for (const Fault& fault : faults) {
    if (fault.row != 0) faulty.insert(fault.row);
  }
  console.streams.error(fmt::format("Batch: {} fault{}; {} of {} row{} {} sound; nothing was run\n",
                                    faults.size(), faults.size() == 1 ? "" : "s",
                                    rows - std::min(rows, faulty.size()), rows,
                                    rows == 1 ? "" : "s", rows == 1 ? "is" : "are"));
  return kNotAll;
}

std::vector<std::optional<JobResult>> earlierResults(const std::vector<Job>& jobs, bool resume,
                                                     const Workshop& workshop) {
  std::vector<std::optional<JobResult>> results(jobs.size());
  if (!workshop.state.isThere()) return results;
  forEachPart(jobs.size(), 1, [&](size_t begin, size_t end) {
    for (size_t i = begin; i < end; ++i) {
      auto result = workshop.state.result(jobs[i]);
      if (!result || (result->status == JobStatus::kFailed && !resume)) continue;
      if (isDoneAndUnchanged(jobs[i], *result, workshop)) results[i] = std::move(result);
    }
  });
  return results;
}

std::string installedFolder() {
  return programFolder();
}

}  // namespace tovrek::batch
