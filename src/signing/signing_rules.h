// Small rules that decide what a signature says.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "signing/CodeDirectory.h"
#include "signing/CodeFile.h"
#include "signing/CodeObject.h"

namespace tovrek::signing {

// The identifier that a file's name stands for: without folder, extension (unless a digit follows
// its dot) and version numbers but the first. "libfoo7.3.5.dylib" gives "libfoo7".
std::string canonicalIdentifier(std::string_view path);

// The identifier when none is asked for: the bundle's, its name, else that of the file with
// `prefix` in front when it has no dot. An ad-hoc signature of a file whose identifier still has
// no dot appends what tells the code apart from others of the same name.
std::string defaultIdentifier(const CodeObject& object, const CodeFile& file,
                              const std::string& prefix, bool adhoc);

// The hashes that a signature needs, the primary one first: SHA-256, and SHA-1 before it when any
// architecture is to run on a system that knows nothing else.
std::vector<HashKind> defaultDigests(const CodeFile& file);

// "0x10002(adhoc,runtime)".
std::string flagsText(uint32_t flags);
// The flag of that name as --options takes it; 0 for an unknown one.
uint32_t flagByName(std::string_view name);

}  // namespace tovrek::signing
