#include "signing/CodeDirectory.h"

#include <fmt/format.h>

#include <algorithm>

namespace tovrek::signing {
namespace {

constexpr uint32_t kNoLimit32 = 0xffffffff;
constexpr size_t kOldestHeaderSize = 44;

constexpr HashKind kHashKinds[] = {
    kSha1,
    kSha256,
    {3, 20, DigestAlgorithm::kSha256, "sha256", kSha256.oid},
    {4, 48, DigestAlgorithm::kSha384, "sha384", "2.16.840.1.101.3.4.2.2"},
    {5, 64, DigestAlgorithm::kSha512, "sha512", "2.16.840.1.101.3.4.2.3"},
};

// The order in which systems prefer hashes; stronger is higher.
int rankOf(const HashKind& kind) {
  constexpr int kRanks[] = {0, 1, 3, 2, 4, 5};
  return kRanks[kind.type];
}

// Field reader: zero for what lies beyond the blob or is younger than its version.
struct Header {
  std::string_view blob;
  uint32_t version;

  uint32_t field32(size_t at, uint32_t since = 0) const {
    return version < since ? 0 : readBig32(blob, at).value_or(0);
  }
  uint64_t field64(size_t at, uint32_t since) const {
    return version < since ? 0 : readBig64(blob, at).value_or(0);
  }
  uint8_t field8(size_t at) const { return static_cast<uint8_t>(blob[at]); }
};

size_t headerSizeFor(uint32_t version) {
  if (version >= CodeDirectoryVersion::kRuntime) return 96;
  if (version >= CodeDirectoryVersion::kExecSeg) return 88;
  if (version >= CodeDirectoryVersion::kCodeLimit64) return 64;
  if (version >= CodeDirectoryVersion::kTeam) return 52;
  return version >= CodeDirectoryVersion::kScatter ? 48 : kOldestHeaderSize;
}

}  // namespace

std::optional<HashKind> hashKind(uint8_t type) {
  for (const HashKind& kind : kHashKinds) {
    if (kind.type == type) return kind;
  }
  return std::nullopt;
}

std::string hashOf(const HashKind& kind, std::string_view bytes) {
  return digestOf(kind.algorithm, bytes).substr(0, kind.size);
}

uint64_t CodeDirectoryInfo::pageCount() const {
  if (codeLimit == 0) return 0;
  return pageSizeLog2 == 0 ? 1 : ((codeLimit - 1) >> pageSizeLog2) + 1;
}

std::optional<CodeDirectory> CodeDirectory::parse(std::string_view blob, ErrorText* error) {
  if (blob.size() < kOldestHeaderSize || magicOf(blob) != kCodeDirectoryMagic) {
    fail(error, "code directory is too short or has another magic");
    return std::nullopt;
  }
  const auto kind = hashKind(static_cast<uint8_t>(blob[37]));
  if (!kind || kind->size != static_cast<uint8_t>(blob[36])) {
    fail(error, fmt::format("code directory has unknown hash type {} of {} bytes",
                            static_cast<uint8_t>(blob[37]), static_cast<uint8_t>(blob[36])));
    return std::nullopt;
  }
  CodeDirectory directory(blob, *kind);
  if (!directory.readHeader(error)) return std::nullopt;
  return directory;
}

bool CodeDirectory::readHeader(ErrorText* error) {
  const Header header{blob_, *readBig32(blob_, 8)};
  if (header.version < CodeDirectoryVersion::kOldest ||
      header.version > CodeDirectoryVersion::kNewest) {
    return fail(error,
                fmt::format("code directory version {:#x} is not supported", header.version));
  }
  if (blob_.size() < headerSizeFor(header.version)) {
    return fail(error, fmt::format("code directory of version {:#x} is cut short", header.version));
  }
  info_.version = header.version;
  info_.flags = header.field32(12);
  hashOffset_ = header.field32(16);
  specialSlots_ = header.field32(24);
  codeSlots_ = header.field32(28);
  info_.codeLimit = header.field32(32);
  info_.platform = header.field8(38);
  info_.pageSizeLog2 = header.field8(39);
  if (const uint64_t limit = header.field64(56, CodeDirectoryVersion::kCodeLimit64))
    info_.codeLimit = limit;
  info_.execSegBase = header.field64(64, CodeDirectoryVersion::kExecSeg);
  info_.execSegLimit = header.field64(72, CodeDirectoryVersion::kExecSeg);
  info_.execSegFlags = header.field64(80, CodeDirectoryVersion::kExecSeg);
  info_.runtime = header.field32(88, CodeDirectoryVersion::kRuntime);

  const auto identifier = stringAt(header.field32(20));
  if (!identifier) return fail(error, "code directory's identifier lies outside of it");
  info_.identifier = *identifier;
  if (const uint32_t teamOffset = header.field32(48, CodeDirectoryVersion::kTeam)) {
    const auto team = stringAt(teamOffset);
    if (!team) return fail(error, "code directory's team identifier lies outside of it");
    info_.teamId = *team;
  }
  const uint64_t before = uint64_t{specialSlots_} * kind_.size;
  if (before > hashOffset_ || !holds(blob_, hashOffset_, uint64_t{codeSlots_} * kind_.size)) {
    return fail(error, "code directory's hashes lie outside of it");
  }
  if (info_.pageSizeLog2 > 30 || info_.pageCount() != codeSlots_) {
    return fail(error, fmt::format("code directory has {} pages for {} bytes of code", codeSlots_,
                                   info_.codeLimit));
  }
  return true;
}

std::optional<std::string> CodeDirectory::stringAt(uint32_t offset) const {
  if (offset >= blob_.size()) return std::nullopt;
  const size_t end = blob_.find('\0', offset);
  if (end == std::string_view::npos) return std::nullopt;
  return std::string(blob_.substr(offset, end - offset));
}

std::string_view CodeDirectory::specialHash(uint32_t slot) const {
  if (slot == 0 || slot > specialSlots_) return {};
  return blob_.substr(hashOffset_ - size_t{slot} * kind_.size, kind_.size);
}

std::string_view CodeDirectory::codeHash(uint32_t page) const {
  if (page >= codeSlots_) return {};
  return blob_.substr(hashOffset_ + size_t{page} * kind_.size, kind_.size);
}

bool CodeDirectory::sealsSlot(uint32_t slot) const {
  return specialHash(slot).find_first_not_of('\0') != std::string_view::npos;
}

size_t writtenHeaderSize(const CodeDirectoryInfo& info) {
  return headerSizeFor(info.runtime == 0 ? CodeDirectoryVersion::kExecSeg
                                         : CodeDirectoryVersion::kRuntime);
}

std::string makeCodeDirectory(const CodeDirectoryInfo& info, const HashKind& kind,
                              const std::map<uint32_t, std::string>& specialHashes,
                              std::string_view codeHashes) {
  const uint32_t specialSlots = specialHashes.empty() ? 0 : specialHashes.rbegin()->first;
  const size_t teamLength = info.teamId.empty() ? 0 : info.teamId.size() + 1;
  const size_t identifierAt = writtenHeaderSize(info);
  const size_t teamAt = identifierAt + info.identifier.size() + 1;
  const size_t hashesAt = teamAt + teamLength + size_t{specialSlots} * kind.size;
  const bool wide = info.codeLimit >= kNoLimit32;

  std::string body;
  body.reserve(hashesAt + codeHashes.size());
  appendBig32(&body,
              info.runtime == 0 ? CodeDirectoryVersion::kExecSeg : CodeDirectoryVersion::kRuntime);
  appendBig32(&body, info.flags);
  appendBig32(&body, static_cast<uint32_t>(hashesAt));
  appendBig32(&body, static_cast<uint32_t>(identifierAt));
  appendBig32(&body, specialSlots);
  appendBig32(&body, static_cast<uint32_t>(info.pageCount()));
  appendBig32(&body, wide ? kNoLimit32 : static_cast<uint32_t>(info.codeLimit));
  for (const uint8_t byte : {kind.size, kind.type, info.platform, info.pageSizeLog2}) {
    body.push_back(static_cast<char>(byte));
  }
  appendBig32(&body, 0);  // spare
  appendBig32(&body, 0);  // no scatter vector
  appendBig32(&body, teamLength == 0 ? 0 : static_cast<uint32_t>(teamAt));
  appendBig32(&body, 0);  // spare
  appendBig64(&body, wide ? info.codeLimit : 0);
  appendBig64(&body, info.execSegBase);
  appendBig64(&body, info.execSegLimit);
  appendBig64(&body, info.execSegFlags);
  if (info.runtime != 0) {
    appendBig32(&body, info.runtime);
    appendBig32(&body, 0);  // no hashes from before an encryption
  }
  body.append(info.identifier).push_back('\0');
  if (teamLength != 0) body.append(info.teamId).push_back('\0');
  for (uint32_t slot = specialSlots; slot > 0; --slot) {
    const auto hash = specialHashes.find(slot);
    body += hash == specialHashes.end() ? std::string(kind.size, '\0') : hash->second;
  }
  body += codeHashes;
  return makeBlob(kCodeDirectoryMagic, body);
}

std::optional<std::vector<CodeDirectory>> codeDirectoriesOf(const SuperBlob& signature,
                                                            ErrorText* error) {
  std::vector<CodeDirectory> directories;
  for (const SuperBlob::Entry& entry : signature.entries()) {
    const bool isDirectory =
        entry.type == kCodeDirectorySlot || (entry.type >= kAlternateCodeDirectorySlot &&
                                             entry.type <= kLastAlternateCodeDirectorySlot);
    if (!isDirectory) continue;
    auto directory = CodeDirectory::parse(entry.blob, error);
    if (!directory) return std::nullopt;
    for (const CodeDirectory& other : directories) {
      if (other.kind().type == directory->kind().type) {
        fail(error, "two code directories have the same hash type");
        return std::nullopt;
      }
    }
    const auto at = entry.type == kCodeDirectorySlot ? directories.begin() : directories.end();
    directories.insert(at, std::move(*directory));
  }
  if (!signature.find(kCodeDirectorySlot)) {
    fail(error, "signature has no code directory");
    return std::nullopt;
  }
  return directories;
}

const CodeDirectory& bestOf(const std::vector<CodeDirectory>& directories) {
  return *std::max_element(directories.begin(), directories.end(),
                           [](const CodeDirectory& a, const CodeDirectory& b) {
                             return rankOf(a.kind()) < rankOf(b.kind());
                           });
}

}  // namespace tovrek::signing
