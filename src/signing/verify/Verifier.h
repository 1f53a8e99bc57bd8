// Checking signatures. Shares the formats with the signer and nothing else: pages, special slots
// and resources are found and hashed here in their own way, so that an error of one does not hide
// in the other.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "signing/CertificateChain.h"
#include "signing/KnownCertificates.h"
#include "signing/verify/resource_check.h"

namespace tovrek::signing {

inline constexpr const char* kInvalidSignature =
    "invalid signature (code or signature have been modified)";

struct VerifyOptions {
  std::optional<std::string> requirement;   // compiled: what the code is to satisfy besides its own
  std::optional<std::string> architecture;  // check this one alone
  // Also refuse what a cautious system does not load: bytes behind the signature, and links that
  // lead out of the bundle.
  bool strict = false;
  DigestsToCheck digests = DigestsToCheck::kAll;
  const FileSource* files = &FileSource::disk();
  // How many bundles this one lies in, as far as one call has followed their seals.
  int depth = 0;
  // Certificates of code that was checked before; null for none.
  KnownCertificates* certificates = nullptr;
};

struct Verdict {
  bool valid = false;
  // For valid code alone: whether it satisfies its own designated requirement, and the one asked
  // for (true when none was).
  bool satisfiesDesignated = false;
  bool satisfiesRequirement = false;
  // What is wrong, the main statement first; then "file modified: ..." and the like.
  std::vector<std::string> lines;
  // The certificates that the last message read encloses; empty without a readable one.
  CertificateChain enclosed;
};

// Checks all architectures of what `path` denotes, and the resources of a bundle. The signer's
// chain is checked for being one; whom to trust is left to the requirement.
Verdict verifyCode(const std::string& path, const VerifyOptions& options = {});

}  // namespace tovrek::signing
