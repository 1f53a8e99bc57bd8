// What codesign -d hands out of a signature.
#pragma once

#include <string>

#include "programs/codesign/Codesign.h"
#include "signing/CodeSignature.h"

namespace tovrek::codesign {

// What --entitlements, --requirements and --extract-certificates ask for. Answers the exit status.
int extractParts(const std::string& path, const Options& options,
                 const signing::CodeSignature& signature, const Streams& streams);

}  // namespace tovrek::codesign
