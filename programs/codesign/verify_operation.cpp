// codesign -v.
#include <fmt/format.h>

#include "host/paths.h"
#include "host/printable.h"
#include "programs/codesign/Codesign.h"
#include "programs/codesign/requirement_source.h"
#include "signing/verify/Verifier.h"

namespace tovrek::codesign {

int verifyPath(const std::string& path, const Options& options, const Streams& streams) {
  signing::VerifyOptions wanted;
  wanted.strict = options.strict;
  wanted.architecture = options.architecture;
  if (options.testRequirement) {
    ErrorText error;
    wanted.requirement = readRequirement(*options.testRequirement, &error);
    if (!wanted.requirement) {
      streams.error(error.text() + "\n");
      return kFailure;
    }
  }
  const auto verdict = signing::verifyCode(path, wanted);
  if (!verdict.valid) {
    streams.error(fmt::format("{}: {}\n", printable(path), printable(verdict.lines.front())));
    for (size_t i = 1; i < verdict.lines.size(); ++i)
      streams.error(printable(verdict.lines[i]) + "\n");
    if (equalsIgnoringCase(pathExtension(path), "ipa")) {
      streams.error("codesign: an archive has no signature: unpack it, and name the app inside\n");
    }
    return kFailure;
  }
  const bool tell = options.verbosity > 0;
  int status = kSuccess;
  if (tell) streams.error(fmt::format("{}: valid on disk\n", printable(path)));
  if (!verdict.satisfiesDesignated) {
    failPath(path, "does not satisfy its designated Requirement", streams);
    streams.error(
        "codesign: the signature is intact; the requirement is an earlier signer's, which devices "
        "do not look at\n");
    status = kUnsatisfied;
  } else if (tell) {
    streams.error(fmt::format("{}: satisfies its Designated Requirement\n", printable(path)));
  }
  if (!verdict.satisfiesRequirement) {
    streams.error("test-requirement: code failed to satisfy specified code requirement(s)\n");
    status = kUnsatisfied;
  } else if (tell && wanted.requirement) {
    streams.error(fmt::format("{}: explicit requirement satisfied\n", printable(path)));
  }
  return status;
}

}  // namespace tovrek::codesign
