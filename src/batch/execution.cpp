#include "batch/execution.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "batch/failure_text.h"
#include "host/clock.h"
#include "host/delivery.h"
#include "host/file_status.h"
#include "host/files.h"
#include "host/host_info.h"
#include "host/interruption.h"
#include "host/paths.h"

namespace tovrek::batch {
namespace {

constexpr size_t kMostPrinted = 64 << 10;  // that the ending text is looked for in
constexpr size_t kLongestText = 4 << 10;
constexpr auto kGrace = std::chrono::milliseconds(300);

// Where an output is made: in a folder of this job's beside its place, and there in one of this
// attempt's. A command that has outlived the run which started it finds its folder gone.
class Staging {
 public:
  Staging(const Job& job, std::string attempt) : attempt_(std::move(attempt)) {
    for (const std::string& path : job.paths(ColumnKind::kOutput)) {
      outputs_.push_back({path, joinPath(containingFolder(path), ".batch-" + job.key)});
    }
  }
  ~Staging() {
    for (const Output& output : outputs_) remove(output, nullptr);
  }
  Staging(const Staging&) = delete;
  Staging& operator=(const Staging&) = delete;

  bool make(ErrorText* error) {
    for (const Output& output : outputs_) {
      if (!remove(output, error)) return false;
    }
    for (const Output& output : outputs_) {
      const std::string folder = joinPath(output.folder, attempt_);
      if (isDirectory(folder)) continue;  // of two outputs side by side
      if (!createPrivateDirectory(output.folder, error)) return false;
      if (!createPrivateDirectory(folder, error)) return false;
    }
    return true;
  }

  std::string placeOf(const std::string& path) const {
    for (const Output& output : outputs_) {
      if (output.path == path) return placeOf(output);
    }
    return path;
  }

  // The first output that was not made whole; empty for none.
  std::string missing(std::vector<uint64_t>* sizes) const {
    for (const Output& output : outputs_) {
      const auto status = statusNoFollow(placeOf(output));
      if (!status || status->kind != ItemKind::kFile || status->size == 0) return output.path;
      sizes->push_back(status->size);
    }
    return "";
  }

  bool deliver(ErrorText* error) const {
    for (const Output& output : outputs_) {
      ErrorText reason;
      if (!renameFileInto(placeOf(output), output.path, &reason)) {
        return fail(error, fmt::format("{} could not be written: {}", output.path, reason.text()));
      }
    }
    return true;
  }

 private:
  struct Output {
    std::string path, folder;
  };

  std::string placeOf(const Output& output) const {
    return joinPath(joinPath(output.folder, attempt_), lastPathComponent(output.path));
  }
  static bool remove(const Output& output, ErrorText* error) {
    return !itemExistsNoFollow(output.folder) || removeItem(output.folder, error);
  }

  std::string attempt_;
  std::vector<Output> outputs_;
};

class Execution {
 public:
  Execution(const Job& job, const Workshop& workshop) : job_(job), workshop_(workshop) {}

  JobResult run() {
    ErrorText error;
    result_.started = currentTime();
    result_.host = workshop_.host;
    FolderLock lock;
    const std::string folder = workshop_.state.folderOf(job_);
    if (!createDirectories(folder, &error)) return failed(folder + ": " + error.text());
    if (!lock.take(folder, &error)) {
      return failed(fmt::format("another process is at this row ({})", error.text()));
    }
    attempt();
    result_.seconds = currentTime() - result_.started;
    if (result_.status == JobStatus::kStopped) return result_;
    // What is not written down has not been done.
    if (!workshop_.state.write(job_, result_, &error)) {
      return failed(fmt::format("the result could not be written: {}", error.text()));
    }
    return result_;
  }

 private:
  JobResult failed(std::string text) {
    fails(std::move(text));
    return result_;
  }
  void fails(std::string text) {
    result_.status = JobStatus::kFailed;
    result_.text = std::move(text);
    if (result_.text.size() > kLongestText) result_.text.resize(kLongestText);
  }

  void attempt() {
    ErrorText error;
    const auto digest = workshop_.digests.of(job_, &error);
    if (!digest) return fails(error.text());
    result_.digest = *digest;
    Staging staging(job_, uniqueString());
    if (!workshop_.state.removeResult(job_, &error) || !clearFolder(&error) ||
        !staging.make(&error)) {
      return fails(error.text());
    }
    ChildEnd end;
    const bool ran = workshop_.children.run(
        {commandLine(staging), "", workshop_.state.outputOf(job_), workshop_.limit}, &end, &error);
    if (isGivenUp(end)) {
      result_.status = JobStatus::kStopped;
      return;
    }
    if (!ran) return fails("the command could not be started: " + error.text());
    judge(end, staging);
  }

  // Whoever ends a whole run may reach the command first, and this process a moment later.
  bool isGivenUp(const ChildEnd& end) const {
    constexpr int kEndingSignals[] = {1, 2, 15};  // hang-up, interrupt, termination
    const bool wasEnded = end.signalled && std::ranges::count(kEndingSignals, end.status) != 0;
    if (wasEnded && interruption() == 0) std::this_thread::sleep_for(kGrace);
    return workshop_.children.isStopped() || interruption() != 0;
  }

  // Of what an earlier attempt has left: its log, and files that it was killed at writing.
  bool clearFolder(ErrorText* error) const {
    const std::string folder = workshop_.state.folderOf(job_);
    const auto names = listDirectory(folder, error);
    if (!names) return false;
    for (const std::string& name : *names) {
      const bool isOld = name.starts_with(".tovrek-") || name.ends_with(".log");
      if (isOld && !removeItem(joinPath(folder, name), error)) return false;
    }
    return true;
  }

  std::vector<std::string> commandLine(const Staging& staging) const {
    std::vector<std::string> words = {joinPath(workshop_.programFolder, "Tovrek"),
                                      nameOf(job_.command)};
    for (const JobOption& option : job_.options) {
      words.push_back(fmt::format("-{}", option.column->name));
      if (option.column->kind == ColumnKind::kSwitch) continue;
      const bool isOutput = option.column->kind == ColumnKind::kOutput;
      words.push_back(isOutput ? staging.placeOf(option.value) : option.value);
    }
    words.push_back("-logFile");
    words.push_back(workshop_.state.logOf(job_));
    return words;
  }

  void judge(const ChildEnd& end, const Staging& staging) {
    const std::string printed = endOfFile(workshop_.state.outputOf(job_), kMostPrinted);
    const std::string said = endingText(printed);
    result_.exit = end.signalled ? 128 + end.status : end.status;
    if (end.outlasted) {
      return fails(fmt::format("the command took longer than {} s and was ended",
                               workshop_.limit.value_or(std::chrono::seconds(0)).count()));
    }
    if (end.signalled) return fails(fmt::format("the command was ended by signal {}", end.status));
    if (end.status != 0) {
      return fails(said.empty() ? fmt::format("the command ended with status {}", end.status)
                                : said);
    }
    const std::string missing = staging.missing(&result_.sizes);
    if (!missing.empty()) {
      result_.sizes.clear();
      return fails(fmt::format("{} was not made{}{}", missing, said.empty() ? "" : ": ", said));
    }
    ErrorText error;
    if (!staging.deliver(&error)) return fails(error.text());
    result_.status = JobStatus::kDone;
    result_.text = reportedText(printed).substr(0, kLongestText);  // a warning
  }

  const Job& job_;
  const Workshop& workshop_;
  JobResult result_;
};

}  // namespace

JobResult runJob(const Job& job, const Workshop& workshop) {
  return Execution(job, workshop).run();
}

bool isDoneAndUnchanged(const Job& job, const JobResult& result, const Workshop& workshop) {
  if (result.status == JobStatus::kDone && !outputsAreThere(job, result)) return false;
  const auto digest = workshop.digests.of(job, nullptr);
  return digest && *digest == result.digest;
}

}  // namespace tovrek::batch
