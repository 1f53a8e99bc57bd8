// Parts of a signature that codesign -d hands out.
#pragma once

#include <string>

#include "companions/codesign/Codesign.h"
#include "companions/signing/CodeSignature.h"

namespace tovrek::codesign {

// What --entitlements, --requirements and --extract-certificates ask for. Answers the exit status.
int extractParts(const std::string& path, const Options& options,
                 const signing::CodeSignature& signature, const Streams& streams);

}  // namespace tovrek::codesign
