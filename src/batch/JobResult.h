// What became of a job, and the file that says so.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "batch/Job.h"
#include "host/ErrorText.h"

namespace tovrek::batch {

enum class JobStatus {
  kDone,
  kFailed,
  kStopped,  // given up for an interruption: as if it had not begun
};

struct JobResult {
  JobStatus status = JobStatus::kFailed;
  int exit = 0;      // of the command; 128 and the number for a signal
  std::string text;  // why it failed, or what it warned of
  std::string digest;
  double started = 0, seconds = 0;
  std::string host;
  std::vector<uint64_t> sizes;  // of the outputs, in the order of the columns
};

// One JSON object.
std::string resultText(const Job& job, const JobResult& result);
// None for what is no result, such as half a file.
std::optional<JobResult> parseResult(std::string_view text);

}  // namespace tovrek::batch
