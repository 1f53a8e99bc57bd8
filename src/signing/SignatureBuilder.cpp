#include "signing/SignatureBuilder.h"

#include "signing/CmsSignature.h"

namespace tovrek::signing {
namespace {

constexpr uint64_t kMessageReserve = 18000;
// Header of the youngest form of code directories; the written one is smaller.
constexpr uint64_t kReservedHeaderSize = 96;

}  // namespace

SignatureBuilder::SignatureBuilder(const SignatureContents& contents, bool isMainExecutable,
                                   std::string_view infoPlist, uint32_t runtimeVersion)
    : contents_(contents),
      isMainExecutable_(isMainExecutable),
      infoPlist_(infoPlist),
      runtimeVersion_(runtimeVersion) {
  blobs_[kRequirementsSlot] = contents.requirements;
  if (isMainExecutable && contents.entitlements) {
    blobs_[kEntitlementsSlot] = contents.entitlements->xmlBlob;
    blobs_[kDerEntitlementsSlot] = contents.entitlements->derBlob;
  }
}

CodeDirectoryInfo SignatureBuilder::infoFor(uint64_t codeLimit) const {
  CodeDirectoryInfo info = contents_.info;
  info.codeLimit = codeLimit;
  if ((info.flags & kRuntimeFlag) != 0 && info.runtime == 0) info.runtime = runtimeVersion_;
  if (!isMainExecutable_) return info;
  info.execSegFlags = kExecSegMainBinary;
  if (contents_.entitlements) info.execSegFlags |= contents_.entitlements->execSegFlags;
  return info;
}

std::map<uint32_t, std::string> SignatureBuilder::specialHashes(const HashKind& kind) const {
  std::map<uint32_t, std::string> hashes;
  for (const auto& [slot, blob] : blobs_) hashes[slot] = hashOf(kind, blob);
  if (!infoPlist_.empty()) hashes[kInfoPlistSlot] = hashOf(kind, infoPlist_);
  if (contents_.seal != nullptr) hashes[kResourcesSlot] = hashOf(kind, *contents_.seal);
  return hashes;
}

uint64_t SignatureBuilder::reservedSize(uint64_t codeLimit) const {
  const CodeDirectoryInfo info = infoFor(codeLimit);
  uint64_t size = 12 + kMessageReserve;
  for (const HashKind& kind : contents_.digests) {
    const auto special = specialHashes(kind);
    const uint64_t bare = makeCodeDirectory(info, kind, special, "").size();
    size += bare - writtenHeaderSize(info) + kReservedHeaderSize + info.pageCount() * kind.size;
  }
  for (const auto& [slot, blob] : blobs_) size += blob.size();
  const uint64_t count = blobs_.size() + contents_.digests.size() + 1;
  return alignUp(size + 8 * count, 16);
}

std::optional<std::map<uint32_t, std::string>> SignatureBuilder::build(
    uint64_t codeLimit, const std::vector<std::string>& pageHashes, ExecutableSegment segment,
    ErrorText* error) const {
  CodeDirectoryInfo info = infoFor(codeLimit);
  info.execSegBase = segment.base;
  info.execSegLimit = segment.limit;
  auto blobs = blobs_;
  std::vector<CodeDirectory> directories;
  for (size_t i = 0; i < contents_.digests.size(); ++i) {
    const HashKind& kind = contents_.digests[i];
    const auto slot = i == 0 ? uint32_t{kCodeDirectorySlot}
                             : static_cast<uint32_t>(kAlternateCodeDirectorySlot + i - 1);
    std::string& blob = blobs[slot];
    blob = makeCodeDirectory(info, kind, specialHashes(kind), pageHashes[i]);
    auto directory = CodeDirectory::parse(blob, error);
    if (!directory) return std::nullopt;
    directories.push_back(std::move(*directory));
  }
  std::string message;
  if (!contents_.identity.isAdhoc()) {
    auto made = makeCms(contents_.identity, directories, error);
    if (!made) return std::nullopt;
    message = std::move(*made);
  }
  blobs[kCmsSlot] = makeBlob(kWrapperMagic, message);
  return blobs;
}

}  // namespace tovrek::signing
