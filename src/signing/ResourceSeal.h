// The seal of a bundle: a property list with the hashes of its resources.
#pragma once

#include <optional>
#include <string>

#include "host/ErrorText.h"
#include "host/progress_report.h"
#include "signing/ResourceRules.h"

namespace tovrek::signing {

struct SealRequest {
  std::string root;            // the bundle's folder
  std::string executableName;  // in the root; it has its own hashes
  const ResourceRuleSet* rules = nullptr;
  bool withSha1 = false;  // SHA-1 also in the second generation, for old systems
  ProgressReport* progress = nullptr;
};

// The property list as XML, all files read once. None, with the reason, for unreadable files and
// for items that are neither file, folder nor link.
std::optional<std::string> sealResources(const SealRequest& request, ErrorText* error);

// Whether an item in the root of a bundle never belongs to the seal: the signature itself and the
// executable.
bool isOutsideSeal(const std::string& relativePath, const std::string& executableName);

}  // namespace tovrek::signing
