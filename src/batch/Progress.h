// What a run shows of itself while it goes on and at its end.
#pragma once

#include <string>
#include <vector>

#include "batch/Job.h"
#include "batch/JobResult.h"
#include "host/Streams.h"

namespace tovrek::batch {

// On a terminal one line that changes, and a line for each failure; elsewhere a line for each job.
class Progress {
 public:
  Progress(const Streams& streams, bool isTerminal, size_t total);

  void ended(const Job& job, const JobResult& result);
  void show(size_t running);
  // Takes the changing line away; answers how many were done in this run.
  void finish();

  size_t done() const { return done_; }
  size_t failed() const { return failed_; }
  double seconds() const;

 private:
  std::string counts(size_t running) const;

  const Streams& streams_;
  bool isTerminal_;
  size_t total_, done_ = 0, failed_ = 0;
  double start_;
  std::string shown_;
};

// A text of a command, or a name, as one line of a terminal.
std::string oneLine(std::string_view text);
// "1:02:03" or "2:03".
std::string durationText(double seconds);

}  // namespace tovrek::batch
