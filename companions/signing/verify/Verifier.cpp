#include "companions/signing/verify/Verifier.h"

#include <fmt/format.h>

#include <algorithm>

#include "companions/signing/CmsSignature.h"
#include "companions/signing/CodeFile.h"
#include "companions/signing/CodeSignature.h"
#include "companions/signing/requirements.h"
#include "companions/signing/verify/requirement_check.h"
#include "companions/signing/verify/resource_check.h"
#include "host/files.h"
#include "macho/layout.h"

namespace tovrek::signing {
namespace {

constexpr const char* kInvalidSignature =
    "invalid signature (code or signature have been modified)";
constexpr const char* kInvalidInfoPlist =
    "invalid Info.plist (plist or signature have been modified)";
constexpr const char* kNoResources =
    "code has no resources but signature indicates they must be present";
constexpr const char* kUnsealedResources = "code has resources but the signature seals none";
constexpr const char* kBadResource = "a sealed resource is missing or invalid";
constexpr uint32_t kLastKnownSlot = 0x10002;

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
    if (!isKnown || entry.blob.data() != next) return false;
    if (previous != nullptr && entry.type <= previous->type) return false;
    next = entry.blob.data() + entry.blob.size();
    previous = &entry;
  }
  return next == bytes.data() + index->length();
}

bool arePagesIntact(const CodeDirectory& directory, std::string_view code) {
  const auto& info = directory.info();
  if (info.codeLimit > code.size()) return false;
  Digest digest(directory.kind().algorithm);
  const uint64_t step = info.pageSizeLog2 == 0 ? std::max<uint64_t>(info.codeLimit, 1)
                                               : uint64_t{1} << info.pageSizeLog2;
  for (uint32_t page = 0; page < directory.codeSlotCount(); ++page) {
    const uint64_t start = page * step;
    digest.update(code.substr(start, std::min(step, info.codeLimit - start)));
    if (digest.finish().substr(0, directory.kind().size) != directory.codeHash(page)) return false;
  }
  return true;
}

class Verifier {
 public:
  explicit Verifier(const std::optional<std::string>& requirement) : requirement_(requirement) {}

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
  bool checkNamedDirectories(const CodeSignature& signature, const CmsSignature& cms);
  bool checkSlots(const CodeSignature& signature, const CodeDirectory& directory,
                  std::string_view infoPlist);
  bool checkResources();
  void checkRequirement();

  const std::optional<std::string>& requirement_;
  Verdict verdict_;
  CodeObject object_;
  CodeFile file_;
  std::string seal_;
  bool hasSeal_ = false;
  std::optional<CodeSignature> signature_;  // of the main image
  CertificateChain chain_;                  // of the last image that was checked
};

Verdict Verifier::run(const std::string& path) {
  verdict_.valid = open(path) && checkImages() && checkResources();
  if (verdict_.valid) checkRequirement();
  return std::move(verdict_);
}

bool Verifier::open(const std::string& path) {
  ErrorText error;
  auto object = CodeObject::resolve(path, &error);
  if (!object) return failed(error.text());
  object_ = std::move(*object);
  auto file = CodeFile::open(object_.executable, &error);
  if (!file) return failed(error.text());
  file_ = std::move(*file);
  signature_ = CodeSignature::of(object_, file_, &error);
  if (!signature_) return failed(error.text() == kNotSigned ? kNotSigned : kInvalidSignature);
  hasSeal_ = object_.isBundle() && readFile(object_.sealPath(), &seal_);
  return true;
}

bool Verifier::checkImages() {
  if (!file_.isMachO()) return checkSignature(*signature_, file_.bytes(), object_.infoPlist);
  for (const MachOImage& image : file_.images()) {
    if (checkImage(image)) continue;
    if (file_.isUniversal()) verdict_.lines.push_back("In architecture: " + image.archName());
    return false;
  }
  return true;
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
  return checkSignature(*signature, asText(image.bytes.bytes()),
                        object_.isBundle() ? std::string_view(object_.infoPlist) : image.infoPlist);
}

bool Verifier::checkSignature(const CodeSignature& signature, std::string_view code,
                              std::string_view infoPlist) {
  if (!checkMessage(signature)) return false;
  for (const CodeDirectory& directory : signature.directories()) {
    const CodeDirectoryInfo& first = signature.primary().info();
    const CodeDirectoryInfo& info = directory.info();
    const bool same = info.identifier == first.identifier && info.teamId == first.teamId &&
                      info.flags == first.flags && info.codeLimit == first.codeLimit;
    if (!same || !arePagesIntact(directory, code)) return failed(kInvalidSignature);
    if (!checkSlots(signature, directory, infoPlist)) return false;
  }
  return true;
}

bool Verifier::checkMessage(const CodeSignature& signature) {
  chain_ = CertificateChain();
  if (signature.isAdhoc()) return signature.cms().empty() || failed(kInvalidSignature);
  const auto cms = CmsSignature::parse(signature.cms());
  if (!cms || !cms->isSignatureOver(signature.primary().blob()) ||
      !checkNamedDirectories(signature, *cms)) {
    return failed(kInvalidSignature);
  }
  chain_ = cms->chain();
  const std::string& team = signature.primary().info().teamId;
  if (!team.empty() && chain_.leaf().subject("OU") != team) return failed(kInvalidSignature);
  return true;
}

// A signer with several directories vouches for each of them, not only for the one it signed.
bool Verifier::checkNamedDirectories(const CodeSignature& signature, const CmsSignature& cms) {
  std::vector<const CodeDirectory*> ordered;
  for (const CodeDirectory& directory : signature.directories()) ordered.push_back(&directory);
  std::sort(ordered.begin(), ordered.end(),
            [](const auto* a, const auto* b) { return a->kind().type < b->kind().type; });
  if (!cms.cdHashesAttribute()) return ordered.size() == 1;
  PlistValue::Array hashes;
  for (const CodeDirectory* directory : ordered) {
    hashes.emplace_back(PlistValue::Data{directory->cdHash()});
  }
  const auto plist = parsePlist(*cms.cdHashesAttribute());
  const auto* named = plist && plist->dictionary() != nullptr
                          ? arrayForKey(*plist->dictionary(), "cdhashes")
                          : nullptr;
  if (named == nullptr || *named != hashes) return false;
  if (!cms.namedHashes()) return true;
  return cms.namedHashes()->size() == ordered.size() &&
         std::all_of(ordered.begin(), ordered.end(), [&](const CodeDirectory* directory) {
           return std::any_of(cms.namedHashes()->begin(), cms.namedHashes()->end(),
                              [&](const auto& pair) {
                                return pair.oid == oidContents(directory->kind().oid) &&
                                       pair.hash == directory->fullHash();
                              });
         });
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
  const auto differences = resourceDifferences(object_, seal_);
  if (differences.empty()) return true;
  verdict_.lines.push_back(kBadResource);
  verdict_.lines.insert(verdict_.lines.end(), differences.begin(), differences.end());
  return false;
}

void Verifier::checkRequirement() {
  RequirementContext context;
  context.identifier = signature_->best().info().identifier;
  context.platform = signature_->best().info().platform;
  context.info = object_.info;
  context.chain = chain_;
  for (const CodeDirectory& each : signature_->directories()) {
    context.cdHashes.push_back(each.cdHash());
  }
  const auto entitlements = signature_->entitlementsText();
  const auto plist = entitlements ? parsePlist(*entitlements) : std::nullopt;
  if (plist && plist->dictionary() != nullptr) context.entitlements = *plist->dictionary();

  std::optional<std::string_view> wanted;
  if (requirement_) {
    wanted = *requirement_;
  } else if (const auto set = signature_->component(kRequirementsSlot)) {
    const auto index = SuperBlob::parse(*set, kRequirementSetMagic);
    if (index) wanted = index->find(kDesignatedRequirement);
  }
  // Without a designated requirement the code's own hash is what is required.
  if (!wanted) {
    verdict_.satisfiesRequirement = true;
    return;
  }
  const auto expression = RequirementExpression::parse(*wanted);
  verdict_.satisfiesRequirement = expression && satisfies(context, *expression);
}

}  // namespace

Verdict verifyCode(const std::string& path, const std::optional<std::string>& requirement) {
  return Verifier(requirement).run(path);
}

}  // namespace tovrek::signing
