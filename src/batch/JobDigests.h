// Telling whether a job is still the one that was done.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "batch/Job.h"
#include "host/ErrorText.h"

namespace tovrek::batch {

// Digests over all that an output depends on: the program with its settings and the folder of what
// it puts into apps, the options, the contents and names of the inputs, and the names of the
// outputs. Where the files lie does not count, so that another machine comes to the same.
//
// Several threads may ask at once. What rows share is read once: a change in the middle of a run is
// seen by the next one.
class JobDigests {
 public:
  // `programFolder` is the installed folder.
  explicit JobDigests(std::string programFolder) : programFolder_(std::move(programFolder)) {}

  // The digest as hexadecimal text; none, with the reason, when an input cannot be read.
  std::optional<std::string> of(const Job& job, ErrorText* error);

 private:
  std::optional<std::string> ofProgram(ErrorText* error);
  std::optional<std::string> ofShared(const std::string& path, ErrorText* error);

  std::string programFolder_;
  std::mutex mutex_;
  std::optional<std::string> program_;
  std::map<std::string, std::string> shared_;
};

// The SHA-256 of a regular file, as hexadecimal text.
std::optional<std::string> fileDigest(const std::string& path, ErrorText* error);

}  // namespace tovrek::batch
