// What can be told of a job's paths.
#include <fmt/format.h>

#include <map>

#include "batch/judging.h"
#include "host/file_status.h"
#include "host/files.h"
#include "host/paths.h"

namespace tovrek::batch {
namespace {

// The path with the links of its folder resolved, so that one file has one text. The folders are
// few, and asking for each costs a call to the system.
class TruePaths {
 public:
  std::string of(const std::string& path) {
    const std::string folder = containingFolder(path);
    const auto [known, isNew] = folders_.try_emplace(folder);
    if (isNew) known->second = realPath(folder).value_or(folder);
    return joinPath(known->second, lastPathComponent(path));
  }

 private:
  std::map<std::string, std::string> folders_;
};

class FileJudge {
 public:
  explicit FileJudge(Faults* faults) : faults_(*faults) {}

  void judge(const std::vector<Job>& jobs) {
    for (const Job& job : jobs) {
      for (const JobOption& option : job.options) judgeOption(job, option);
    }
    for (const Job& job : jobs) judgeOrder(job);
  }

 private:
  void judgeOption(const Job& job, const JobOption& option) {
    switch (option.column->kind) {
      case ColumnKind::kInput:
        return judgeInput(job, option);
      case ColumnKind::kOutput:
        return judgeOutput(job, option);
      case ColumnKind::kKeys:
        if (!fileExists(option.value))
          refuse(job, option.column->name, "there is no " + option.value, &faults_);
        return;
      default:
        return;
    }
  }

  void judgeInput(const Job& job, const JobOption& option) {
    const auto status = statusOf(option.value);
    std::string reason;
    if (!status) {
      reason = fmt::format("there is no file {}", option.value);
    } else if (status->kind == ItemKind::kDirectory) {
      // An app in a folder would be changed where it stands, and half of that is no whole output.
      reason = fmt::format("{} is a folder; files alone are taken, such as an .ipa", option.value);
    } else if (status->kind != ItemKind::kFile) {
      reason = fmt::format("{} is no regular file", option.value);
    }
    if (!reason.empty()) refuse(job, option.column->name, std::move(reason), &faults_);
  }

  void judgeOutput(const Job& job, const JobOption& option) {
    const std::string& path = option.value;
    const std::string folder = containingFolder(path);
    const char* column = option.column->name;
    if (!isDirectory(folder)) {
      refuse(job, column, fmt::format("there is no folder {}", folder), &faults_);
    } else if (isDirectory(path)) {
      refuse(job, column, fmt::format("{} is a folder", path), &faults_);
    }
    // The command would put one behind the name.
    if (pathExtension(path).empty()) {
      refuse(job, column, fmt::format("{} has no extension", path), &faults_);
    }
    const auto [other, isNew] = makers_.emplace(paths_.of(path), &job);
    if (isNew) return;
    refuse(job, column,
           other->second == &job ? fmt::format("{} is another output of this row", path)
                                 : fmt::format("row {} makes {} too", other->second->row, path),
           &faults_);
  }

  // Jobs run in any order, several at a time.
  void judgeOrder(const Job& job) {
    for (const JobOption& option : job.options) {
      if (option.column->kind != ColumnKind::kInput) continue;
      const auto maker = makers_.find(paths_.of(option.value));
      if (maker == makers_.end()) continue;
      refuse(job, option.column->name,
             maker->second == &job
                 ? fmt::format("{} is an output of this row", option.value)
                 : fmt::format("{} is what row {} makes; put it into a table of its own",
                               option.value, maker->second->row),
             &faults_);
    }
  }

  Faults& faults_;
  TruePaths paths_;
  std::map<std::string, const Job*> makers_;
};

}  // namespace

void refuse(const Job& job, std::string column, std::string reason, Faults* faults) {
  faults->push_back({job.row, job.line, std::move(column), std::move(reason)});
}

void judgeFiles(const std::vector<Job>& jobs, Faults* faults) {
  FileJudge(faults).judge(jobs);
}

}  // namespace tovrek::batch
