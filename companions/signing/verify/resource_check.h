// Whether a bundle's files are those that its seal lists.
#pragma once

#include <string>
#include <vector>

#include "companions/signing/CodeObject.h"

namespace tovrek::signing {

// One line for each difference ("file modified: PATH", "file missing: PATH", "file added: PATH"),
// sorted by kind and path; none when all is as sealed. `seal` is the property list's text.
std::vector<std::string> resourceDifferences(const CodeObject& object, const std::string& seal);

}  // namespace tovrek::signing
