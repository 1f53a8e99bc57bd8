// Making the table that signs apps anew before their profiles or certificates end.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "batch/batch.h"
#include "device/profile_choice.h"
#include "formats/Certificate.h"

namespace tovrek::batch {

struct RenewalOptions {
  std::string folder;                   // of packages and app archives, at any depth
  std::string certificate;              // a name or a SHA-1
  std::string profiles;                 // a folder
  std::string output;                   // the folder for the new packages
  std::optional<std::string> keychain;  // none for the search list
  int within = 30;                      // days
};

// What is known of an app that may have to be renewed.
struct RenewalCandidate {
  std::string path;
  std::string problem;  // why it cannot be read; empty for none
  std::string identifier;
  std::vector<std::string> extensions;  // identifiers of what needs a profile of its own
  std::optional<double> ends;           // the first of its profiles and certificates to end
  bool isForStore = false, isWrapped = false;
};
RenewalCandidate readCandidate(const std::string& path);

struct RenewalRow {
  std::string input, output, profile, identifier;
};
// An app that is not signed anew, or not all of it.
struct RenewalLack {
  std::string path, identifier, reason;
};
struct RenewalPlan {
  std::vector<RenewalRow> rows;
  std::vector<RenewalLack> missing;  // no profile for an identifier
  std::vector<RenewalLack> leftOut;  // for another reason
  size_t upToDate = 0;
};

// What the choice depends on beside the apps.
struct RenewalSupplies {
  std::vector<device::StoredProfile> profiles;
  std::function<bool(const Certificate&)> isSigner;
  bool signsWrapped = false;  // whether the settings let wrapped .ipa files be signed
  double now = 0;
};

// Takes what ends within the days given, with the profile that fits best of those that last longer.
RenewalPlan planRenewal(const RenewalOptions& options, const RenewalSupplies& supplies,
                        const std::vector<RenewalCandidate>& candidates);

// The table for these rows.
std::string renewalTable(const RenewalOptions& options, const RenewalPlan& plan);

// Plans, writes the table to `run.table` (where that is empty, to renew.csv in the output folder),
// tells what is in it and what is missing; and runs it when `runs` is set. Answers an ExitStatus:
// kNotAll also when something is missing.
int renew(const RenewalOptions& options, RunOptions run, bool runs, const Console& console);

}  // namespace tovrek::batch
