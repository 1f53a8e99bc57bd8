#include "signing/verify/Verifier.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>

#include "host/MappedFile.h"
#include "host/files.h"
#include "host/parallel.h"
#include "macho/layout.h"
#include "signing/CmsSignature.h"
#include "signing/CodeFile.h"
#include "signing/CodeSignature.h"
#include "signing/RequirementParser.h"
#include "signing/requirements.h"
#include "signing/verify/entitlement_check.h"
#include "signing/verify/message_check.h"
#include "signing/verify/requirement_check.h"
#include "signing/verify/resource_check.h"

namespace tovrek::signing {
namespace {

constexpr const char* kInvalidInfoPlist =
    "invalid Info.plist (plist or signature have been modified)";
constexpr const char* kNoResources =
    "code has no resources but signature indicates they must be present";
constexpr const char* kUnsealedResources = "code has resources but the signature seals none";
constexpr const char* kBadResource = "a sealed resource is missing or invalid";
constexpr const char* kBadNested = "nested code is modified or invalid";
// When the original has these two is unverified.
constexpr const char* kBadLink = "invalid destination for symbolic link in bundle";
constexpr const char* kNotStrict = "main executable failed strict validation";
constexpr uint64_t kReadAtOnce = uint64_t{1} << 22;
constexpr uint32_t kLastKnownSlot = 0x10002;

// Some linkers put blobs at multiples of this.
constexpr ptrdiff_t kBlobAlignment = 8;

// Bundles in bundles; a seal that leads further was made to.
constexpr int kDeepestNestedCode = 64;

// Whether the item lies below the bundle's own folder, links resolved: a seal that names the bundle
// itself, or code elsewhere, would be followed for ever or out of it.
bool liesInside(const CodeObject& object, const std::string& path) {
  const auto root = object.files->realPath(object.root);
  const auto item = object.files->realPath(path);
  return root && item && item->starts_with(*root + "/");
}

// Whether only zeros, and no more than an alignment takes, lie between the two.
bool isFilling(const char* from, const char* to) {
  return to >= from && to - from < kBlobAlignment &&
         std::all_of(from, to, [](char c) { return c == '\0'; });
}

// Whether the index holds known kinds of blobs alone, in order and without gaps.
bool isOrderly(std::string_view bytes) {
  const auto index = SuperBlob::parse(bytes, kEmbeddedSignatureMagic);
  if (!index) return false;
  const char* next = bytes.data() + 12 + 8 * index->entries().size();
  uint32_t alternates = 0;
  const SuperBlob::Entry* previous = nullptr;
  for (const SuperBlob::Entry& entry : index->entries()) {
    const bool isAlternate =
        entry.type >= kAlternateCodeDirectorySlot && entry.type <= kLastAlternateCodeDirectorySlot;
    if (isAlternate && entry.type != kAlternateCodeDirectorySlot + alternates++) return false;
    const bool isKnown = entry.type <= kLastSpecialSlot || isAlternate ||
                         (entry.type >= kCmsSlot && entry.type <= kLastKnownSlot);
    if (!isKnown || !isFilling(next, entry.blob.data())) return false;
    if (previous != nullptr && entry.type <= previous->type) return false;
    next = entry.blob.data() + entry.blob.size();
    previous = &entry;
  }
  return isFilling(next, bytes.data() + index->length());
}

// Each processor takes some megabytes at a time and gives the memory of mapped code back.
bool arePagesIntact(const CodeDirectory& directory, std::string_view code, bool isMapped) {
  const auto& info = directory.info();
  if (info.codeLimit > code.size()) return false;
  const uint64_t step = info.pageSizeLog2 == 0 ? std::max<uint64_t>(info.codeLimit, 1)
                                               : uint64_t{1} << info.pageSizeLog2;
  const size_t pagesAtOnce = std::max<uint64_t>(1, kReadAtOnce / step);
  std::atomic<bool> intact{true};
  forEachPart(directory.codeSlotCount(), pagesAtOnce, [&](size_t begin, size_t end) {
    const std::string_view part = code.substr(begin * step, (end - begin) * step);
    Digest digest(directory.kind().algorithm);
    for (size_t page = begin; intact && page < end; ++page) {
      const uint64_t start = page * step;
      digest.update(code.substr(start, std::min(step, info.codeLimit - start)));
      const std::string hash = digest.finish().substr(0, directory.kind().size);
      if (hash != directory.codeHash(static_cast<uint32_t>(page))) intact = false;
    }
    if (isMapped) releasePages(part);
  });
  return intact;
}

class Verifier {
 public:
  explicit Verifier(const VerifyOptions& options) : options_(options) {}

  Verdict run(const std::string& path);

 private:
  bool failed(std::string text) {
    verdict_.lines.push_back(std::move(text));
    return false;
  }
  bool open(const std::string& path);
  bool checkImages();
  bool checkImage(const MachOImage& image);
  bool checkSignature(const CodeSignature& signature, std::string_view code,
                      std::string_view infoPlist);
  bool checkMessage(const CodeSignature& signature);
  bool checkSlots(const CodeSignature& signature, const CodeDirectory& directory,
                  std::string_view infoPlist);
  bool checkResources();
  bool checkNested(const BundleSeal& seal);
  bool checkLinks();
  RequirementContext context() const;
  void checkRequirements();

  const VerifyOptions& options_;
  Verdict verdict_;
  CodeObject object_;
  CodeFile file_;
  std::string seal_;
  bool hasSeal_ = false;
  std::optional<CodeSignature> signature_;  // of the main image
  CertificateChain chain_;                  // of the last image that was checked
  KnownCertificates certificates_;          // of this code alone
};

Verdict Verifier::run(const std::string& path) {
  verdict_.valid = open(path) && checkImages() && checkResources();
  if (verdict_.valid) checkRequirements();
  return std::move(verdict_);
}

bool Verifier::open(const std::string& path) {
  ErrorText error;
  auto object = CodeObject::resolve(path, &error, *options_.files);
  if (!object) return failed(error.text());
  object_ = std::move(*object);
  auto file = CodeFile::open(object_.executable, &error, *options_.files);
  if (!file) return failed(error.text());
  file_ = std::move(*file);
  signature_ = CodeSignature::of(object_, file_, &error);
  if (!signature_) return failed(error.text() == kNotSigned ? kNotSigned : kInvalidSignature);
  hasSeal_ = object_.isBundle() && object_.files->read(object_.sealPath(), &seal_);
  return true;
}

bool Verifier::checkImages() {
  if (!file_.isMachO()) return checkSignature(*signature_, file_.bytes(), object_.infoPlist);
  bool found = false;
  for (const MachOImage& image : file_.images()) {
    if (options_.architecture && image.archName() != *options_.architecture) continue;
    found = true;
    if (checkImage(image)) continue;
    if (file_.isUniversal()) verdict_.lines.push_back("In architecture: " + image.archName());
    return false;
  }
  return found || failed(fmt::format("no architecture {} in it", *options_.architecture));
}

bool Verifier::checkImage(const MachOImage& image) {
  ErrorText error;
  const auto area = signatureArea(image, &error);
  if (!area) return failed(error.text() == kNotSigned ? kNotSigned : kInvalidSignature);
  const auto signature = CodeSignature::embeddedIn(image, &error);
  if (!signature || !isOrderly(*area)) return failed(kInvalidSignature);
  for (const CodeDirectory& directory : signature->directories()) {
    if (directory.info().codeLimit != image.signature->dataoff) return failed(kInvalidSignature);
  }
  const uint64_t end = uint64_t{image.signature->dataoff} + image.signature->datasize;
  if (options_.strict && end != image.bytes.size()) return failed(kNotStrict);
  return checkSignature(*signature, asText(image.bytes.bytes()),
                        object_.isBundle() ? std::string_view(object_.infoPlist) : image.infoPlist);
}

bool Verifier::checkSignature(const CodeSignature& signature, std::string_view code,
                              std::string_view infoPlist) {
  if (!checkMessage(signature)) return false;
  if (!areEntitlementsConsistent(signature)) return failed(kInvalidSignature);
  for (const CodeDirectory& directory : signature.directories()) {
    const CodeDirectoryInfo& first = signature.primary().info();
    const CodeDirectoryInfo& info = directory.info();
    const bool same = info.identifier == first.identifier && info.teamId == first.teamId &&
                      info.flags == first.flags && info.codeLimit == first.codeLimit;
    const bool readsPages =
        options_.digests == DigestsToCheck::kAll || &directory == &signature.best();
    if (!same || (readsPages && !arePagesIntact(directory, code, file_.isMapped()))) {
      return failed(kInvalidSignature);
    }
    if (!checkSlots(signature, directory, infoPlist)) return false;
  }
  return true;
}

bool Verifier::checkMessage(const CodeSignature& signature) {
  chain_ = CertificateChain();
  if (signature.isAdhoc()) return signature.cms().empty() || failed(kInvalidSignature);
  const auto cms = CmsSignature::parse(
      signature.cms(), options_.certificates != nullptr ? options_.certificates : &certificates_);
  if (!cms) return failed(kInvalidSignature);
  verdict_.enclosed = cms->chain();
  CertificateChain chain = verdict_.enclosed.completed();
  if (const char* fault = messageFault(signature, *cms, chain)) return failed(fault);
  chain_ = std::move(chain);
  return true;
}

// What the directory seals has to be there, and what is there has to be sealed.
bool Verifier::checkSlots(const CodeSignature& signature, const CodeDirectory& directory,
                          std::string_view infoPlist) {
  for (uint32_t slot = 1;
       slot <= std::max<uint32_t>(kLastSpecialSlot, directory.specialSlotCount()); ++slot) {
    std::optional<std::string_view> data = signature.component(slot);
    const char* text = kInvalidSignature;
    if (slot == kInfoPlistSlot) {
      text = kInvalidInfoPlist;
      if (!infoPlist.empty()) data = infoPlist;
    }
    if (slot == kResourcesSlot) {
      text = hasSeal_ ? kUnsealedResources : kNoResources;
      if (hasSeal_) data = seal_;
    }
    const bool sealed = directory.sealsSlot(slot);
    if (sealed != data.has_value()) return failed(text);
    if (sealed && hashOf(directory.kind(), *data) != directory.specialHash(slot)) {
      return failed(slot == kResourcesSlot ? kInvalidSignature : text);
    }
  }
  return true;
}

bool Verifier::checkResources() {
  if (!hasSeal_) return true;
  const BundleSeal seal(seal_);
  const auto differences = seal.differences(object_, options_.digests);
  if (!differences.empty()) {
    verdict_.lines.push_back(kBadResource);
    verdict_.lines.insert(verdict_.lines.end(), differences.begin(), differences.end());
    return false;
  }
  return checkNested(seal) && (!options_.strict || checkLinks());
}

// The seal names code inside by the requirement that it satisfies.
bool Verifier::checkNested(const BundleSeal& seal) {
  for (const NestedCode& nested : seal.nestedCode(object_)) {
    ErrorText reason;
    const auto requirement = parseRequirement(nested.requirement, &reason);
    VerifyOptions options;
    options.strict = options_.strict;
    options.digests = options_.digests;
    options.files = options_.files;
    options.depth = options_.depth + 1;
    options.certificates =
        options_.certificates != nullptr ? options_.certificates : &certificates_;
    if (requirement) options.requirement = requirement->blob();
    if (requirement && options.depth <= kDeepestNestedCode && liesInside(object_, nested.path)) {
      const Verdict inner = verifyCode(nested.path, options);
      if (inner.valid && inner.satisfiesRequirement) continue;
    }
    verdict_.lines.push_back(kBadNested);
    verdict_.lines.push_back("In subcomponent: " + nested.path);
    return false;
  }
  return true;
}

bool Verifier::checkLinks() {
  const auto stray = linksLeadingOut(object_);
  if (stray.empty()) return true;
  verdict_.lines.push_back(kBadLink);
  for (const std::string& path : stray) verdict_.lines.push_back("file modified: " + path);
  return false;
}

RequirementContext Verifier::context() const {
  RequirementContext context;
  context.identifier = signature_->best().info().identifier;
  context.platform = signature_->best().info().platform;
  context.info = object_.info;
  if (!object_.isBundle() && file_.isMachO()) {
    const auto embedded = parsePlist(file_.mainImage().infoPlist);
    if (embedded && embedded->dictionary() != nullptr) context.info = *embedded->dictionary();
  }
  context.chain = chain_;
  for (const CodeDirectory& each : signature_->directories()) {
    context.cdHashes.push_back(each.cdHash());
  }
  const auto entitlements = signature_->entitlementsText();
  const auto plist = entitlements ? parsePlist(*entitlements) : std::nullopt;
  if (plist && plist->dictionary() != nullptr) context.entitlements = *plist->dictionary();
  return context;
}

void Verifier::checkRequirements() {
  const auto holds = [&](const std::optional<std::string_view>& wanted) {
    if (!wanted) return true;
    const auto expression = RequirementExpression::parse(*wanted);
    return expression && satisfies(context(), *expression);
  };
  // Without a designated requirement the code's own hash is what is required.
  const auto set = signature_->component(kRequirementsSlot);
  const auto index = set ? SuperBlob::parse(*set, kRequirementSetMagic) : std::nullopt;
  verdict_.satisfiesDesignated = holds(index ? index->find(kDesignatedRequirement) : std::nullopt);
  verdict_.satisfiesRequirement = holds(options_.requirement);
}

}  // namespace

Verdict verifyCode(const std::string& path, const VerifyOptions& options) {
  return Verifier(options).run(path);
}

}  // namespace tovrek::signing
