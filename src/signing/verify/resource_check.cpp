#include "signing/verify/resource_check.h"

#include <algorithm>
#include <filesystem>
#include <map>

#include "formats/Digest.h"
#include "host/MappedFile.h"
#include "host/bytes.h"
#include "host/files.h"
#include "host/parallel.h"
#include "host/paths.h"
#include "signing/verify/SealRules.h"

namespace tovrek::signing {
namespace {

constexpr uint64_t kLargestCopy = 256 << 10;
constexpr size_t kFilesAtOnce = 16;

// A seal's entry for one file.
struct Sealed {
  std::string sha1, sha256, link;
  bool optional = false;
  bool isNested = false;  // code with its own signature
};

std::string bytesUnder(const PlistDictionary& entry, const char* key) {
  const PlistValue* value = entry.find(key);
  const auto* data = value == nullptr ? nullptr : value->data();
  return data == nullptr ? "" : data->bytes;
}

Sealed sealedFrom(const PlistValue& value) {
  Sealed sealed;
  if (const auto* data = value.data()) sealed.sha1 = data->bytes;
  if (const PlistDictionary* entry = value.dictionary()) {
    sealed.sha1 = bytesUnder(*entry, "hash");
    sealed.sha256 = bytesUnder(*entry, "hash2");
    sealed.link = stringForKeyOr(*entry, "symlink", "");
    const PlistValue* optional = entry->find("optional");
    const bool* flag = optional == nullptr ? nullptr : optional->boolean();
    sealed.optional = flag != nullptr && *flag;
    sealed.isNested = entry->contains("cdhash");
  }
  return sealed;
}

bool isAsSealed(const Sealed& sealed, std::string_view bytes, DigestsToCheck digests) {
  if (sealed.sha1.empty() && sealed.sha256.empty()) return false;
  const auto hasDigest = [&](DigestAlgorithm algorithm, const std::string& digest) {
    return digest.empty() || digestOf(algorithm, bytes) == digest;
  };
  const bool needsSha1 = digests == DigestsToCheck::kAll || sealed.sha256.empty();
  return (!needsSha1 || hasDigest(DigestAlgorithm::kSha1, sealed.sha1)) &&
         hasDigest(DigestAlgorithm::kSha256, sealed.sha256);
}

bool isUnchanged(const std::string& path, const Sealed& sealed, DigestsToCheck digests) {
  if (sealed.isNested) return true;
  if (isSymbolicLink(path)) {
    std::error_code code;
    return !sealed.link.empty() &&
           std::filesystem::read_symlink(path, code).string() == sealed.link && !code;
  }
  // To map a small file costs more than to copy it.
  if (fileSize(path).value_or(0) <= kLargestCopy) {
    std::string bytes;
    return readFile(path, &bytes) && isAsSealed(sealed, bytes, digests);
  }
  MappedFile file;
  return file.open(path, nullptr) && isAsSealed(sealed, asText(file.bytes()), digests);
}

// What is wrong with one sealed file; empty when it is as it was.
std::string differenceOf(const std::string& path, const Sealed& sealed, DigestsToCheck digests) {
  if (!itemExistsNoFollow(path)) return sealed.optional ? "" : "file missing: " + path;
  return isUnchanged(path, sealed, digests) ? "" : "file modified: " + path;
}

// In the root of a bundle, what never belongs to the seal.
bool isUnsealed(const std::string& path, const CodeObject& object) {
  constexpr std::string_view kNames[] = {kSignatureFolder, kSealFile, "_MASReceipt"};
  return path == object.executableName() ||
         std::find(std::begin(kNames), std::end(kNames), path) != std::end(kNames);
}

}  // namespace

std::vector<std::string> resourceDifferences(const CodeObject& object, const std::string& seal,
                                             DigestsToCheck digests) {
  const auto plist = parsePlist(seal);
  const PlistDictionary* dictionary = plist ? plist->dictionary() : nullptr;
  const bool second = dictionary != nullptr && dictionaryForKey(*dictionary, "files2") != nullptr;
  const auto partOf = [&](const char* first, const char* later) {
    return dictionary == nullptr ? nullptr : dictionaryForKey(*dictionary, second ? later : first);
  };
  const PlistDictionary* files = partOf("files", "files2");
  const PlistDictionary* patterns = partOf("rules", "rules2");
  const auto rules = patterns == nullptr ? std::nullopt : SealRules::read(*patterns);
  if (files == nullptr || !rules) return {"the seal is unreadable: " + object.sealPath()};

  std::map<std::string, Sealed> expected;
  for (const auto& [path, value] : *files) expected.emplace(path, sealedFrom(value));
  std::vector<std::pair<std::string, const Sealed*>> sealedFiles;
  for (const auto& [path, sealed] : expected) {
    sealedFiles.emplace_back(joinPath(object.root, path), &sealed);
  }
  std::vector<std::string> differences(sealedFiles.size());
  forEachPart(sealedFiles.size(), kFilesAtOnce, [&](size_t begin, size_t end) {
    for (size_t i = begin; i < end; ++i) {
      differences[i] = differenceOf(sealedFiles[i].first, *sealedFiles[i].second, digests);
    }
  });
  std::erase(differences, "");
  const auto compare = [&](const WalkedItem& item) {
    if (isUnsealed(item.relativePath, object)) return false;
    const auto known = expected.find(item.relativePath);
    if (item.kind == ItemKind::kDirectory) return known == expected.end();
    const bool older = !second && item.kind != ItemKind::kFile;
    if (!older && known == expected.end() && rules->mustList(item.relativePath)) {
      differences.push_back("file added: " + joinPath(object.root, item.relativePath));
    }
    return true;
  };
  ErrorText reason;
  if (!walkDirectory(object.root, compare, &reason)) {
    differences.push_back("folder unreadable: " + reason.text());
  }
  std::stable_sort(differences.begin(), differences.end());
  return differences;
}

std::vector<NestedCode> nestedCode(const CodeObject& object, const std::string& seal) {
  // Flat bundles have none, and their seals are long.
  if (seal.find("cdhash") == std::string::npos) return {};
  const auto plist = parsePlist(seal);
  const auto* files = plist && plist->dictionary() != nullptr
                          ? dictionaryForKey(*plist->dictionary(), "files2")
                          : nullptr;
  std::vector<NestedCode> found;
  if (files == nullptr) return found;
  for (const auto& [path, value] : *files) {
    const PlistDictionary* entry = value.dictionary();
    if (entry == nullptr || !entry->contains("cdhash")) continue;
    found.push_back({joinPath(object.root, path), stringForKeyOr(*entry, "requirement", "")});
  }
  return found;
}

std::vector<std::string> linksLeadingOut(const CodeObject& object) {
  std::vector<std::string> stray;
  const auto check = [&](const WalkedItem& item) {
    if (item.kind != ItemKind::kLink) return true;
    const std::string path = joinPath(object.root, item.relativePath);
    const auto target = realPath(path);
    if (!target || !(*target + "/").starts_with(object.root + "/")) stray.push_back(path);
    return true;
  };
  // What nobody could look into may hold such a link.
  if (!walkDirectory(object.root, check)) stray.push_back(object.root);
  return stray;
}

}  // namespace tovrek::signing
