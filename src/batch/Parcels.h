// Rows that travel to other machines and come back.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "batch/Fault.h"
#include "batch/Job.h"
#include "batch/JobResult.h"
#include "batch/StateFolder.h"
#include "host/ErrorText.h"

namespace tovrek::batch {

// Each row becomes a table of its own, KEY.jsonl, with all files in one folder: the inputs by their
// names, the outputs in KEY/out. What a machine makes of it comes back as the folder KEY, whose
// rows/ is the state of that small table.
class Parcels {
 public:
  explicit Parcels(const StateFolder& state);

  const std::string& folder() const { return folder_; }
  // Makes the folder, without what an earlier run has left there.
  bool make(ErrorText* error);

  // Rows whose files cannot travel: names that two of them share, or with characters that lists of
  // files cannot hold.
  static void judge(const std::vector<Job>& jobs, Faults* faults);

  // Writes the row's table.
  bool pack(const Job& job, ErrorText* error) const;
  // The files that the row needs, as "FOLDER/./NAME".
  std::vector<std::string> filesOf(const Job& job) const;
  // The result that has come back, with the outputs put where they belong, once all is there.
  std::optional<JobResult> unpack(const Job& job) const;

 private:
  std::optional<JobResult> take(const Job& job, const std::string& parcel,
                                const std::string& row) const;

  const StateFolder& state_;
  std::string folder_;
};

}  // namespace tovrek::batch
