// The command line of Batch.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "batch/batch.h"
#include "host/ErrorText.h"

namespace tovrek::batch {

enum class Verb { kHelp, kRun, kRenew, kCheck };

struct Options {
  Verb verb = Verb::kHelp;
  RunOptions run;  // with the table, or for kRenew the one that is to be written
  // Of kRenew.
  std::optional<std::string> folder, certificate, profiles, output, keychain;
  int within = 30;
  bool yes = false;
};

// None, with the reason, for a command line that cannot be meant.
std::optional<Options> parseOptions(const std::vector<std::string>& words, ErrorText* error);

}  // namespace tovrek::batch
