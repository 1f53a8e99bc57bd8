// Checking signatures. Shares the formats with the signer and nothing else: pages, special slots
// and resources are found and hashed here in their own way, so that an error of one does not hide
// in the other.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tovrek::signing {

struct Verdict {
  bool valid = false;
  // Whether the code satisfies the requirement that was asked for, or else its own designated one.
  bool satisfiesRequirement = false;
  // What is wrong, the main statement first; then "file modified: ..." and the like.
  std::vector<std::string> lines;
};

// Checks all architectures of what `path` denotes, and the resources of a bundle. The signer's
// chain is checked for being one; whom to trust is left to the requirement. `requirement` is a
// compiled requirement to test instead of the designated one.
Verdict verifyCode(const std::string& path, const std::optional<std::string>& requirement = {});

}  // namespace tovrek::signing
