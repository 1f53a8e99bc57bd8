// Writing signed code.
#pragma once

#include <optional>
#include <string>

#include "host/ErrorText.h"
#include "signing/CodeFile.h"
#include "signing/CodeObject.h"
#include "signing/SignatureBuilder.h"

namespace tovrek::signing {

// Writes the Mach-O file anew, each architecture with a signature of its own, and the seal of a
// bundle. Both appear together at the end or not at all. What else lay in the bundle's signature
// folder goes.
bool writeMachO(const CodeObject& object, const CodeFile& file, const SignatureContents& contents,
                const std::optional<std::string>& seal, ErrorText* error);

// For bundles whose code is no Mach-O file (or that have none): the signature becomes files in the
// bundle's signature folder, and the code is one page.
bool writeBeside(const CodeObject& object, const CodeFile& file, const SignatureContents& contents,
                 const std::optional<std::string>& seal, ErrorText* error);

// Takes the signatures off all architectures, and the signature folder off a bundle.
bool removeSignatures(const CodeObject& object, const CodeFile& file, ErrorText* error);

}  // namespace tovrek::signing
