// The command line of Inspect.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/ErrorText.h"
#include "host/program.h"

namespace tovrek::inspect {

struct Options {
  std::vector<std::string> paths;
  std::optional<std::string> against, certificate, profile, keychain, html, explain, bundleId;
  std::optional<int> within;
  bool json = false, strict = false, help = false;
  bool isUpgrade = false, keepsExtensions = false;
};

// None, with the reason, for a command line that cannot be meant.
std::optional<Options> parseOptions(const std::vector<std::string>& words, ErrorText* error);

}  // namespace tovrek::inspect
