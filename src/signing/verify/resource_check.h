// Whether a bundle's files are those that its seal lists.
#pragma once

#include <string>
#include <vector>

#include "signing/CodeObject.h"

namespace tovrek::signing {

// Of files and pages that are listed with several digests: all, or the strongest alone, which is
// the one that current systems go by.
enum class DigestsToCheck { kAll, kStrongest };

// One line for each difference ("file modified: PATH", "file missing: PATH", "file added: PATH"),
// sorted by kind and path; none when all is as sealed. `seal` is the property list's text.
std::vector<std::string> resourceDifferences(const CodeObject& object, const std::string& seal,
                                             DigestsToCheck digests);

// Code inside the bundle that its seal names by a requirement instead of by hashes of its files.
struct NestedCode {
  std::string path;
  std::string requirement;  // text
};
std::vector<NestedCode> nestedCode(const CodeObject& object, const std::string& seal);

// Symbolic links whose target does not lie in the bundle.
std::vector<std::string> linksLeadingOut(const CodeObject& object);

}  // namespace tovrek::signing
