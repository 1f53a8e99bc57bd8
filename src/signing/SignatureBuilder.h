// Making one signature: the blobs for one architecture.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/ErrorText.h"
#include "host/progress_report.h"
#include "signing/CodeDirectory.h"
#include "signing/Entitlements.h"
#include "signing/SigningIdentity.h"

namespace tovrek::signing {

// What all architectures of an object share.
struct SignatureContents {
  SigningIdentity identity;
  CodeDirectoryInfo info;         // identifier, team, flags, page size
  std::vector<HashKind> digests;  // the primary one first
  std::optional<Entitlements> entitlements;
  std::string requirements;           // a whole set
  std::string infoPlist;              // of a bundle; empty for none
  const std::string* seal = nullptr;  // of a bundle
  bool dryRun = false;                // find out whether it can be done, change nothing
  ProgressReport* progress = nullptr;
};

// Collects what goes into the signature of one image. First the parts that need no hashes, from
// which the size follows; the image's head tells that size, so it is known before hashing.
class SignatureBuilder {
 public:
  // `info` completes contents.info with the limits of this image. Entitlements belong to main
  // executables alone. `infoPlist` is the one embedded in a file outside of bundles.
  // `runtimeVersion` goes with kRuntimeFlag where the contents state none.
  SignatureBuilder(const SignatureContents& contents, bool isMainExecutable,
                   std::string_view infoPlist, uint32_t runtimeVersion = 0);

  // Room to keep for the signature of `codeLimit` bytes, a multiple of 16. Certificates and
  // attributes of the message are counted with a fixed size.
  uint64_t reservedSize(uint64_t codeLimit) const;

  // The whole signature of `codeLimit` bytes of code whose pages have `pageHashes` (one list for
  // each digest of the contents): all blobs by slot. `segment` is the image's __TEXT. None, with
  // the reason, when the identity cannot sign.
  struct ExecutableSegment {
    uint64_t base = 0, limit = 0;
  };
  std::optional<std::map<uint32_t, std::string>> build(uint64_t codeLimit,
                                                       const std::vector<std::string>& pageHashes,
                                                       ExecutableSegment segment,
                                                       ErrorText* error) const;

 private:
  CodeDirectoryInfo infoFor(uint64_t codeLimit) const;
  std::map<uint32_t, std::string> specialHashes(const HashKind& kind) const;

  const SignatureContents& contents_;
  bool isMainExecutable_;
  std::string_view infoPlist_;
  uint32_t runtimeVersion_;
  std::map<uint32_t, std::string> blobs_;  // without code directories and message
};

}  // namespace tovrek::signing
