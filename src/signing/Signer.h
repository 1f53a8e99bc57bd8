// Putting signatures on code.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "formats/PlistValue.h"
#include "host/ErrorText.h"
#include "host/progress_report.h"
#include "signing/CodeDirectory.h"
#include "signing/SigningIdentity.h"

namespace tovrek::signing {

// Which parts of an existing signature the new one takes over.
struct PreservedMetadata {
  bool identifier = false;
  bool requirements = false;  // the whole set, as it is
  bool entitlements = false;
  bool resourceRules = false;
  bool flags = false;
  bool runtime = false;  // version of the hardened runtime
  bool teamId = false;   // which then has to be the one that the identity gives
};

// Explicit values win over preserved ones.
struct SignOptions {
  SigningIdentity identity;
  bool force = false;  // replace an existing signature
  PreservedMetadata preserve;
  std::optional<std::string> identifier;
  std::string identifierPrefix;             // for identifiers without a dot
  std::optional<std::string> entitlements;  // a property list, or a blob with one
  std::optional<std::string> requirements;  // a whole requirement set
  std::optional<uint32_t> flags;
  std::optional<PlistDictionary> resourceRules;
  std::vector<HashKind> digests;           // empty: by what the code is to run on
  std::optional<uint32_t> runtimeVersion;  // x << 16 | y << 8 | z, for the flag kRuntimeFlag
  uint8_t pageSizeLog2 = 12;
  bool dryRun = false;  // do all but the writing
  ProgressReport* progress = nullptr;
};

// Why code is not signed unless that is forced.
inline constexpr const char* kAlreadySigned = "is already signed";

struct SignReport {
  std::string format;  // "app bundle with Mach-O thin (arm64)"
  std::string identifier;
  // "replacing existing signature" and the like.
  std::vector<std::string> notes;
};

// Signs what `path` denotes: all architectures of a file, and with a bundle its Info.plist and
// resources. Nested code is sealed as it is and has to be signed before.
//
// On a failure the file and the seal are what they were. Needs memory for the hashes, not for the
// file.
bool sign(const std::string& path, const SignOptions& options, SignReport* report,
          ErrorText* error);

}  // namespace tovrek::signing
