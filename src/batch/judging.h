// Judging jobs before the first one starts.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "batch/Fault.h"
#include "batch/Job.h"
#include "inspect/model.h"

namespace tovrek::batch {

struct JudgingRules {
  double now = 0;           // seconds since 1970
  bool keysAreHere = true;  // the jobs run on this host, with its keychains
};

// Inputs that are no files, outputs without a folder, outputs that two jobs make, or that another
// one reads.
void judgeFiles(const std::vector<Job>& jobs, Faults* faults);

// Whether certificates, profiles and apps fit each other, as far as it can be told without taking
// an app apart. Keeps what it has read of profiles and keychains, as rows share them.
class CredentialJudge {
 public:
  explicit CredentialJudge(const JudgingRules& rules) : rules_(rules) {}
  void judge(const Job& job, Faults* faults);

 private:
  struct ProfileAnswer {
    std::optional<inspect::ProfileDetails> profile;
    std::string problem;  // why there is none
  };
  const ProfileAnswer& profileAt(const std::string& path);
  // What is to be said against the certificate with this profile; empty for nothing.
  const std::string& certificateProblem(const Job& job, const std::string& profilePath,
                                        const inspect::ProfileDetails& profile);
  void judgeProfile(const Job& job, const inspect::ProfileDetails& profile, Faults* faults);

  JudgingRules rules_;
  std::map<std::string, ProfileAnswer> profiles_;
  std::map<std::vector<std::string>, std::string> certificates_;
};

// Every check that Inspect knows for the job's app, which costs about as much as the job itself.
void judgeThoroughly(const Job& job, const JudgingRules& rules, Faults* faults);

// Adds a fault of this job.
void refuse(const Job& job, std::string column, std::string reason, Faults* faults);

}  // namespace tovrek::batch
