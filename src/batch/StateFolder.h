// The folder that a table's runs keep what they know in.
#pragma once

#include <optional>
#include <string>

#include "batch/Job.h"
#include "batch/JobResult.h"
#include "host/ErrorText.h"
#include "host/FolderLock.h"

namespace tovrek::batch {

// FOLDER/rows/KEY/ holds `result.json`, `output.txt` with what the command printed, and
// `Orvane.log`, for each row that was begun.
class StateFolder {
 public:
  explicit StateFolder(std::string path) : path_(std::move(path)) {}
  // Where it is when nobody says: beside the table.
  static std::string beside(const std::string& table) { return table + ".state"; }

  const std::string& path() const { return path_; }
  // Makes the folder, or takes the one that is there.
  bool make(ErrorText* error);
  // Holds it against other runs, until destruction. False when one has it.
  bool lock(ErrorText* error) { return lock_.take(path_, error); }
  // Whether a run has begun here before.
  bool isThere() const;

  std::string folderOf(const Job& job) const;
  std::string outputOf(const Job& job) const;
  std::string logOf(const Job& job) const;

  // The row's result; none where there is none that can be read.
  std::optional<JobResult> result(const Job& job) const;
  // Whole or not at all, and on the disk before it returns.
  bool write(const Job& job, const JobResult& result, ErrorText* error) const;
  bool removeResult(const Job& job, ErrorText* error) const;

 private:
  std::string resultPath(const Job& job) const;

  std::string path_;
  FolderLock lock_;
};

// A result out of a regular file of bearable size; none for anything else.
std::optional<JobResult> readResult(const std::string& path);

// Whether all outputs are there, as large as they were made.
bool outputsAreThere(const Job& job, const JobResult& result);

}  // namespace tovrek::batch
