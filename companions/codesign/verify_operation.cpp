// codesign -v.
#include <fmt/format.h>

#include "companions/codesign/Codesign.h"
#include "companions/signing/SuperBlob.h"
#include "companions/signing/verify/Verifier.h"
#include "host/files.h"

namespace tovrek::codesign {
namespace {

bool readRequirement(const std::string& path, std::optional<std::string>* requirement,
                     ErrorText* error) {
  std::string bytes;
  if (!readFile(path, &bytes, error)) return false;
  const auto blob = signing::blobAt(bytes, 0);
  if (!blob || signing::magicOf(*blob) != signing::kRequirementMagic) {
    return fail(error, "not a compiled requirement");
  }
  *requirement = std::string(*blob);
  return true;
}

}  // namespace

int verifyPath(const std::string& path, const Options& options, const Streams& streams) {
  std::optional<std::string> requirement;
  ErrorText error;
  if (options.testRequirement && !readRequirement(*options.testRequirement, &requirement, &error)) {
    return failPath(*options.testRequirement, error.text(), streams);
  }
  const auto verdict = signing::verifyCode(path, requirement);
  if (!verdict.valid) {
    streams.error(fmt::format("{}: {}\n", path, verdict.lines.front()));
    for (size_t i = 1; i < verdict.lines.size(); ++i) streams.error(verdict.lines[i] + "\n");
    return kFailure;
  }
  const bool tell = options.verbosity > 0;
  if (tell) streams.error(fmt::format("{}: valid on disk\n", path));
  const char* good =
      requirement ? "explicit requirement satisfied" : "satisfies its Designated Requirement";
  const char* bad = requirement
                        ? "test-requirement: code failed to satisfy specified code requirement(s)"
                        : "does not satisfy its designated Requirement";
  if (!verdict.satisfiesRequirement) {
    failPath(path, bad, streams);
    return kUnsatisfied;
  }
  if (tell) streams.error(fmt::format("{}: {}\n", path, good));
  return kSuccess;
}

}  // namespace tovrek::codesign
