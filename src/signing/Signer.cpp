#include "signing/Signer.h"

#include <fmt/format.h>

#include "host/paths.h"
#include "signing/CodeFile.h"
#include "signing/CodeSignature.h"
#include "signing/Entitlements.h"
#include "signing/ResourceSeal.h"
#include "signing/SignatureBuilder.h"
#include "signing/SignatureOutput.h"
#include "signing/requirements.h"
#include "signing/signing_rules.h"

namespace tovrek::signing {
namespace {

// One run over one object.
class Signer {
 public:
  Signer(const SignOptions& options, SignReport* report, ErrorText* error)
      : options_(options), report_(*report), error_(error) {}

  bool run(const std::string& path);

 private:
  bool judgeOldSignature();
  bool decideContents();
  bool decideTeam();
  bool decideEntitlements();
  bool decideRequirements();
  bool seal();
  std::optional<ResourceRuleSet> resourceRules();
  const CodeDirectoryInfo& oldInfo() const { return old_->primary().info(); }

  const SignOptions& options_;
  SignReport& report_;
  ErrorText* error_;
  CodeObject object_;
  CodeFile file_;
  std::optional<CodeSignature> old_;  // when there is one to take things over from
  SignatureContents contents_;
  std::optional<std::string> sealBytes_;
};

bool Signer::run(const std::string& path) {
  auto object = CodeObject::resolve(path, error_);
  if (!object) return false;
  object_ = std::move(*object);
  auto file = CodeFile::open(object_.executable, error_);
  if (!file) return false;
  file_ = std::move(*file);
  if (!file_.isMachO() && !object_.isBundle()) {
    return fail(error_, "not a Mach-O file, and no bundle around it to keep a signature in");
  }
  report_.format = formatText(object_, file_);
  if (!judgeOldSignature() || !decideContents() || !seal()) return false;
  contents_.dryRun = options_.dryRun;
  contents_.progress = options_.progress;
  return (file_.isMachO() ? writeMachO(object_, file_, contents_, sealBytes_, error_)
                          : writeBeside(object_, file_, contents_, sealBytes_, error_));
}

// What linkers put into each arm64 program is no signature to be asked about.
bool Signer::judgeOldSignature() {
  ErrorText reason;
  old_ = CodeSignature::of(object_, file_, &reason);
  if (!old_ && reason.text() == kNotSigned) return true;
  if (old_ && old_->isLinkerSigned()) {
    old_.reset();
    return true;
  }
  if (!options_.force) return fail(error_, kAlreadySigned);
  report_.notes.push_back(old_ ? "replacing existing signature"
                               : "replacing invalid existing signature");
  return true;
}

bool Signer::decideContents() {
  const bool adhoc = options_.identity.isAdhoc();
  contents_.identity = options_.identity;
  contents_.digests = options_.digests.empty() ? defaultDigests(file_) : options_.digests;
  contents_.info.pageSizeLog2 = options_.pageSizeLog2;
  contents_.info.identifier =
      options_.identifier ? *options_.identifier
      : options_.preserve.identifier && old_
          ? oldInfo().identifier
          : defaultIdentifier(object_, file_, options_.identifierPrefix, adhoc);
  report_.identifier = contents_.info.identifier;
  if (contents_.info.identifier.empty()) return fail(error_, "no identifier can be made up");
  if (contents_.info.identifier.find('\0') != std::string::npos) {
    return fail(error_, "the identifier holds a zero character");
  }
  const uint32_t flags = options_.flags                    ? *options_.flags
                         : options_.preserve.flags && old_ ? oldInfo().flags
                                                           : 0;
  contents_.info.flags = adhoc ? flags | kAdhocFlag : flags & ~uint32_t{kAdhocFlag};
  if ((contents_.info.flags & kRuntimeFlag) != 0) {
    contents_.info.runtime = options_.runtimeVersion             ? *options_.runtimeVersion
                             : options_.preserve.runtime && old_ ? oldInfo().runtime
                                                                 : 0;
  }
  return decideTeam() && decideEntitlements() && decideRequirements();
}

bool Signer::decideTeam() {
  contents_.info.teamId = options_.identity.chain.teamId();
  if (!options_.preserve.teamId || !old_ || oldInfo().teamId.empty()) return true;
  if (options_.identity.isAdhoc()) contents_.info.teamId = oldInfo().teamId;
  if (contents_.info.teamId == oldInfo().teamId) return true;
  return fail(
      error_,
      fmt::format("team identifier {} cannot be preserved: the identity is of {}", oldInfo().teamId,
                  contents_.info.teamId.empty() ? "no team" : contents_.info.teamId));
}

bool Signer::decideEntitlements() {
  std::optional<std::string> text = options_.entitlements;
  if (!text && options_.preserve.entitlements && old_) {
    if (const auto kept = old_->entitlementsText()) text = std::string(*kept);
  }
  if (!text) return true;
  contents_.entitlements = Entitlements::fromPlist(*text, error_);
  return contents_.entitlements.has_value();
}

bool Signer::decideRequirements() {
  const auto kept =
      options_.preserve.requirements && old_ ? old_->component(kRequirementsSlot) : std::nullopt;
  const std::string& identifier = contents_.info.identifier;
  const CertificateChain& chain = options_.identity.chain;
  if (options_.requirements) {
    contents_.requirements = withDesignatedRequirement(*options_.requirements, identifier, chain);
  } else if (kept && magicOf(*kept) == kRequirementSetMagic) {
    contents_.requirements = withDesignatedRequirement(std::string(*kept), identifier, chain);
  } else {
    contents_.requirements = defaultRequirementSet(identifier, chain);
  }
  return true;
}

std::optional<ResourceRuleSet> Signer::resourceRules() {
  if (options_.resourceRules) return ResourceRuleSet::fromPlist(*options_.resourceRules, error_);
  if (options_.preserve.resourceRules && old_) {
    const auto oldSeal = readPlistDictionary(object_.sealPath());
    if (oldSeal) return ResourceRuleSet::fromPlist(*oldSeal, error_);
  }
  const std::string* named = stringForKey(object_.info, "CFBundleResourceSpecification");
  if (named == nullptr) return ResourceRuleSet::forFlatBundles();
  const auto source = readPlistDictionary(joinPath(object_.root, *named));
  return ResourceRuleSet::fromPlist(source.value_or(PlistDictionary()), error_);
}

bool Signer::seal() {
  if (!object_.isBundle()) return true;
  const auto rules = resourceRules();
  if (!rules) return false;
  SealRequest request{object_.root, object_.executableName(), &*rules, false, options_.progress};
  for (const HashKind& kind : contents_.digests) request.withSha1 |= kind.type == kSha1.type;
  sealBytes_ = sealResources(request, error_);
  if (!sealBytes_) return false;
  contents_.seal = &*sealBytes_;
  contents_.infoPlist = object_.infoPlist;
  return true;
}

}  // namespace

bool sign(const std::string& path, const SignOptions& options, SignReport* report,
          ErrorText* error) {
  *report = {};
  return Signer(options, report, error).run(path);
}

}  // namespace tovrek::signing
