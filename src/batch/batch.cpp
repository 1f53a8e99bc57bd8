#include "batch/batch.h"

#include <fmt/format.h>

#include <algorithm>

#include "batch/LocalEngine.h"
#include "batch/Parcels.h"
#include "batch/Progress.h"
#include "batch/parallel_engine.h"
#include "batch/preparation.h"
#include "batch/report.h"
#include "batch/slurm_engine.h"
#include "host/clock.h"
#include "host/files.h"
#include "host/host_info.h"
#include "host/interruption.h"
#include "host/paths.h"

namespace tovrek::batch {
namespace {

// With paths that other processes, in other folders, understand too.
RunOptions fromAnywhere(RunOptions options) {
  const auto makeAbsolute = [](std::string* path) {
    const auto folder = realPath(containingFolder(*path));
    if (folder && !path->empty()) *path = joinPath(*folder, lastPathComponent(*path));
  };
  makeAbsolute(&options.table);
  if (options.state) makeAbsolute(&*options.state);
  return options;
}

class TableRun {
 public:
  TableRun(const RunOptions& options, const Console& console)
      : options_(fromAnywhere(options)),
        console_(console),
        state_(options_.state.value_or(StateFolder::beside(options_.table))),
        digests_(installedFolder()),
        workshop_{state_, installedFolder(), machineName(), digests_, children_, options.limit} {}

  int run() {
    Faults faults;
    auto jobs = readJobs(options_.table, &faults, console_, &rows_);
    if (!jobs) return kCannotRun;
    jobs_ = std::move(*jobs);
    if (options_.resume && !state_.isThere()) return cannot("there is no run to resume");
    if (options_.index) return runOne(std::move(faults));
    if (faults.empty()) results_ = earlierResults(jobs_, options_.resume, workshop_);
    judge(&faults);
    if (!faults.empty()) return refuseFaults(faults, rows_, console_);
    return runAll();
  }

 private:
  int cannot(const std::string& reason) {
    console_.streams.error(fmt::format("Batch: {}\n", oneLine(reason)));
    return kCannotRun;
  }

  void judge(Faults* faults) {
    judgeFiles(jobs_, faults);
    if (options_.hosts) Parcels::judge(jobs_, faults);
    CredentialJudge judge({currentTime(), !options_.hosts});
    for (size_t i = 0; i < jobs_.size(); ++i) {
      if (results_.empty() || !results_[i]) judge.judge(jobs_[i], faults);
    }
  }

  // For engines that count: nobody else's job is judged, and no lock is held but the job's own.
  int runOne(Faults faults) {
    if (!faults.empty()) return refuseFaults(faults, rows_, console_);
    if (*options_.index >= jobs_.size()) {
      return cannot(fmt::format("there is no job {} in a table of {}; the first is 0",
                                *options_.index, jobs_.size()));
    }
    jobs_ = {std::move(jobs_[*options_.index])};
    results_ = earlierResults(jobs_, options_.resume, workshop_);
    if (!results_.front()) {
      judge(&faults);
      if (!faults.empty()) return refuseFaults(faults, 1, console_);
      ErrorText error;
      if (!state_.make(&error)) return cannot(state_.path() + ": " + error.text());
      LocalEngine(workshop_, LocalLimits()).run({&jobs_.front()}, start(1));
    }
    if (interruption() != 0) endByInterruption();
    const JobResult& result = *results_.front();
    if (result.status == JobStatus::kDone) return kAllDone;
    console_.streams.error(
        fmt::format("{}: {}\n", oneLine(jobs_.front().name), oneLine(result.text)));
    return kNotAll;
  }

  int runAll() {
    ErrorText error;
    if (!state_.make(&error)) return cannot(state_.path() + ": " + error.text());
    if (!state_.lock(&error)) {
      return cannot(
          fmt::format("{}: another run is at this table ({})", state_.path(), error.text()));
    }
    std::vector<const Job*> waiting;
    for (size_t i = 0; i < jobs_.size(); ++i) {
      if (!results_[i]) waiting.push_back(&jobs_[i]);
    }
    if (waiting.size() != jobs_.size()) {
      console_.streams.out(
          fmt::format("{} of {} are done already\n", jobs_.size() - waiting.size(), jobs_.size()));
    }
    if (!runWith(waiting, &error)) return cannot(error.text());
    return finish();
  }

  // The engine alone differs: a row is the same process everywhere.
  bool runWith(const std::vector<const Job*>& waiting, ErrorText* error) {
    const Observer observer = start(waiting.size());
    bool ran = true;
    if (options_.engine == EngineKind::kLocal || waiting.empty()) {
      LocalEngine(workshop_, LocalLimits::forMachine(options_.jobs)).run(waiting, observer);
    } else if (options_.engine == EngineKind::kParallel) {
      ran = runOnParallel(options_, waiting, workshop_, observer, error);
    } else {
      ran = runOnSlurm(options_.table, waiting, options_.jobs, workshop_, observer, error);
    }
    progress_->finish();
    return ran;
  }

  Observer start(size_t waiting) {
    noteInterruptions();
    progress_.emplace(console_.streams, console_.isTerminal, waiting);
    // One job is told of by whoever has called for it.
    const bool isSilent = options_.index.has_value();
    return {[this, isSilent](const Job& job, const JobResult& result) {
              results_[static_cast<size_t>(&job - jobs_.data())] = result;
              if (!isSilent) progress_->ended(job, result);
            },
            [this, isSilent](size_t running) {
              if (!isSilent) progress_->show(running);
            }};
  }

  // Tells what failed and what is left, and how it went.
  int finish() {
    size_t done = 0, left = 0;
    std::vector<size_t> failed;
    for (size_t i = 0; i < jobs_.size(); ++i) {
      if (!results_[i] || results_[i]->status == JobStatus::kStopped) {
        ++left;
      } else if (results_[i]->status == JobStatus::kDone) {
        ++done;
      } else {
        failed.push_back(i);
      }
    }
    if (!failed.empty()) printFailures(failed);
    const size_t ended = progress_->done() + progress_->failed();
    const double seconds = progress_->seconds();
    console_.streams.out(fmt::format(
        "{} done, {} failed, {} left of {}; {:.1f} s, {:.1f} a second\n", done, failed.size(), left,
        jobs_.size(), seconds, seconds > 0 ? static_cast<double>(ended) / seconds : 0));
    const bool isReported = !options_.report || report(*options_.report, seconds);
    if (interruption() != 0) {
      console_.streams.error("Batch: interrupted; --resume completes the run\n");
      endByInterruption();
    }
    if (!isReported) return kCannotRun;
    return failed.empty() && left == 0 ? kAllDone : kNotAll;
  }

  bool report(const std::string& folder, double seconds) {
    ErrorText error;
    const Report whole{options_.table, currentTime(), seconds, jobs_, results_, state_};
    if (writeReport(folder, whole, &error)) return true;
    cannot(fmt::format("{}: {}", folder, error.text()));
    return false;
  }

  void printFailures(const std::vector<size_t>& failed) {
    size_t width = 4;
    for (const size_t i : failed) width = std::max(width, oneLine(jobs_[i].name).size());
    width = std::min<size_t>(width, 40);
    console_.streams.out(fmt::format("{:>7}  {:{}}  {}\n", "row", "name", width, "why it failed"));
    for (const size_t i : failed) {
      console_.streams.out(fmt::format("{:>7}  {:{}}  {}\n", jobs_[i].row, oneLine(jobs_[i].name),
                                       width, oneLine(results_[i]->text)));
    }
  }

  RunOptions options_;
  const Console& console_;
  StateFolder state_;
  JobDigests digests_;
  Children children_;
  Workshop workshop_;
  size_t rows_ = 0;  // of the table, sound or not
  std::vector<Job> jobs_;
  std::vector<std::optional<JobResult>> results_;
  std::optional<Progress> progress_;
};

}  // namespace

int runTable(const RunOptions& options, const Console& console) {
  return TableRun(options, console).run();
}

int checkTable(const std::string& table, const Console& console) {
  Faults faults;
  size_t rows = 0;
  const auto jobs = readJobs(table, &faults, console, &rows);
  if (!jobs) return kCannotRun;
  judgeFiles(*jobs, &faults);
  const JudgingRules rules{currentTime()};
  CredentialJudge judge(rules);
  for (const Job& job : *jobs) {
    judge.judge(job, &faults);
    judgeThoroughly(job, rules, &faults);
  }
  if (!faults.empty()) return refuseFaults(faults, rows, console);
  console.streams.out(fmt::format("no fault in {} {}\n", rows, rows == 1 ? "row" : "rows"));
  return kAllDone;
}

}  // namespace tovrek::batch
