#include "batch/parallel_engine.h"

#include <fmt/format.h>

#include <algorithm>

#include "batch/Parcels.h"
#include "batch/engine_process.h"
#include "host/files.h"
#include "host/host_info.h"
#include "host/paths.h"
#include "host/process.h"
#include "host/resources.h"

namespace tovrek::batch {
namespace {

class ParallelRun {
 public:
  ParallelRun(const RunOptions& options, const std::vector<const Job*>& jobs,
              const Workshop& workshop, const Observer& observer)
      : options_(options),
        jobs_(jobs),
        workshop_(workshop),
        observer_(observer),
        parcels_(workshop.state) {}

  bool here(ErrorText* error) {
    std::string rows;
    for (const Job* job : jobs_) rows += fmt::format("{}\n", job->row - 1);
    if (!clearResults(jobs_, workshop_.state, error) || !write(rows, error)) return false;
    argv_.push_back(fmt::format("--jobs={}", options_.jobs.value_or(processorCount())));
    argv_.push_back(rowCommand(options_.table, workshop_) + " {}");
    return run(
        "", [&](const Job& job) { return workshop_.state.result(job); }, error);
  }

  bool onHosts(ErrorText* error) {
    if (!parcels_.make(error)) return false;
    size_t most = 0;
    for (const Job* job : jobs_) {
      if (!parcels_.pack(*job, error)) return false;
      most = std::max(most, parcels_.filesOf(*job).size());
    }
    std::string rows;
    for (const Job* job : jobs_) {
      auto files = parcels_.filesOf(*job);
      // Each row has as many columns as the longest: a file that is named twice is sent once.
      files.resize(most, files.front());
      rows += fmt::format("{}\t{}\n", job->key, fmt::join(files, "\t"));
    }
    if (!clearResults(jobs_, workshop_.state, error) || !write(rows, error)) return false;
    const auto hosts = realPath(*options_.hosts);
    if (!hosts) return fail(error, fmt::format("there is no file {}", *options_.hosts));
    argv_.insert(argv_.end(), {"--sshloginfile=" + *hosts, "--colsep=\\t", "--workdir=...",
                               "--cleanup", "--return={1}"});
    for (size_t i = 0; i < most; ++i) argv_.push_back(fmt::format("--transferfile={{{}}}", i + 2));
    if (options_.jobs) argv_.push_back(fmt::format("--jobs={}", *options_.jobs));
    argv_.push_back(fmt::format(
        "mkdir -p {{1}}/out/0 {{1}}/out/1 && {} run {{1}}.jsonl --index 0 --state {{1}}{}",
        quotedForShell(options_.remote.value_or(programPath())), limitWords(workshop_)));
    return run(
        parcels_.folder(), [&](const Job& job) { return parcels_.unpack(job); }, error);
  }

 private:
  std::string file(const char* name) const { return joinPath(workshop_.state.path(), name); }

  bool write(const std::string& rows, ErrorText* error) {
    argv_ = {"parallel", "--will-cite", "--joblog=" + file("parallel.log"),
             "--arg-file=" + file("parallel.rows")};
    return writeFileAtomically(file("parallel.rows"), rows, error);
  }

  bool run(const std::string& folder, EngineRows::Look look, ErrorText* error) {
    EngineRows rows(jobs_, observer_, std::move(look));
    if (!runEngine(
            argv_, folder, workshop_, [&] { rows.poll(); }, error))
      return false;
    rows.giveUp(fmt::format("no result came back; see {}", file("engine.txt")));
    return true;
  }

  const RunOptions& options_;
  const std::vector<const Job*>& jobs_;
  const Workshop& workshop_;
  const Observer& observer_;
  Parcels parcels_;
  std::vector<std::string> argv_;
};

}  // namespace

bool runOnParallel(const RunOptions& options, const std::vector<const Job*>& jobs,
                   const Workshop& workshop, const Observer& observer, ErrorText* error) {
  for (const std::string& path :
       {options.table, workshop.state.path(), programPath(), options.remote.value_or("")}) {
    if (path.find('{') != path.npos) {
      return fail(error,
                  fmt::format("parallel has a meaning of its own for the brace in {}", path));
    }
  }
  ParallelRun run(options, jobs, workshop, observer);
  return options.hosts ? run.onHosts(error) : run.here(error);
}

}  // namespace tovrek::batch
