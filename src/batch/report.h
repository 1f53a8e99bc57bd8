// What became of a table, for others to read.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "batch/Job.h"
#include "batch/JobResult.h"
#include "batch/StateFolder.h"
#include "host/ErrorText.h"

namespace tovrek::batch {

struct Report {
  std::string table;
  double now = 0;      // seconds since 1970
  double seconds = 0;  // that the run took
  const std::vector<Job>& jobs;
  const std::vector<std::optional<JobResult>>& results;  // of each job; none for those left
  const StateFolder& state;
};

// One JSON document, as docs/batch.md describes it.
std::string jsonSummary(const Report& report);
// One page for a browser, which loads nothing else, with each row's log.
std::string htmlSummary(const Report& report);

// Writes both, summary.json and index.html, into the folder, which is made where it is missing.
bool writeReport(const std::string& folder, const Report& report, ErrorText* error);

}  // namespace tovrek::batch
