#include "signing/verify/resource_check.h"

#include <algorithm>
#include <span>
#include <string_view>
#include <unordered_map>

#include "formats/Digest.h"
#include "host/parallel.h"
#include "host/paths.h"
#include "signing/verify/SealRules.h"

namespace tovrek::signing {
namespace {

constexpr size_t kPieceSize = 128 << 10;  // stays in a core's cache
constexpr size_t kFilesAtOnce = 64;

// A seal's entry for one file; the seal's list keeps the texts.
struct Sealed {
  const std::string* path = nullptr;
  std::string_view sha1, sha256, link;
  bool optional = false;
  bool isNested = false;               // code with its own signature
  ItemKind seenAs = ItemKind::kOther;  // by the walk: a file or a link
};

std::string_view bytesUnder(const PlistDictionary& entry, const char* key) {
  const PlistValue* value = entry.find(key);
  const auto* data = value == nullptr ? nullptr : value->data();
  return data == nullptr ? "" : std::string_view(data->bytes);
}

Sealed sealedFrom(const std::string& path, const PlistValue& value) {
  Sealed sealed;
  sealed.path = &path;
  if (const auto* data = value.data()) sealed.sha1 = data->bytes;
  if (const PlistDictionary* entry = value.dictionary()) {
    sealed.sha1 = bytesUnder(*entry, "hash");
    sealed.sha256 = bytesUnder(*entry, "hash2");
    if (const std::string* link = stringForKey(*entry, "symlink")) sealed.link = *link;
    const PlistValue* optional = entry->find("optional");
    const bool* flag = optional == nullptr ? nullptr : optional->boolean();
    sealed.optional = flag != nullptr && *flag;
    sealed.isNested = entry->contains("cdhash");
  }
  return sealed;
}

// Reads files and compares them with what was sealed. For one thread: keeps from file to file what
// is costly to make.
class SealedFileReader {
 public:
  SealedFileReader(const CodeObject& object, const FileSource::Folder& root, DigestsToCheck digests)
      : files_(*object.files), path_(object.root), root_(root), digests_(digests) {}

  // What is wrong with one sealed file; empty when it is as it was.
  std::string differenceOf(const Sealed& sealed) {
    const std::string path = joinPath(path_, *sealed.path);
    if (sealed.seenAs == ItemKind::kOther && !files_.kindAt(path)) {
      return sealed.optional ? "" : "file missing: " + path;
    }
    return isUnchanged(path, sealed) ? "" : "file modified: " + path;
  }

 private:
  bool isUnchanged(const std::string& path, const Sealed& sealed) {
    if (sealed.isNested) return true;
    // Only what the walk has not met, as it stands behind a link, is asked for its kind.
    const bool isLink =
        sealed.seenAs == ItemKind::kLink ||
        (sealed.seenAs == ItemKind::kOther && files_.kindAt(path) == ItemKind::kLink);
    if (!isLink) return hasContents(sealed);
    return !sealed.link.empty() && files_.linkTarget(path) == sealed.link;
  }

  bool hasContents(const Sealed& sealed) {
    const bool needsSha1 =
        !sealed.sha1.empty() && (digests_ == DigestsToCheck::kAll || sealed.sha256.empty());
    const bool needsSha256 = !sealed.sha256.empty();
    if (!needsSha1 && !needsSha256) return false;
    const bool isRead = root_.readPieces(*sealed.path, piece_, [&](std::string_view bytes) {
      if (needsSha1) sha1_.update(bytes);
      if (needsSha256) sha256_.update(bytes);
    });
    const bool sameSha1 = !needsSha1 || sha1_.finish() == sealed.sha1;
    const bool sameSha256 = !needsSha256 || sha256_.finish() == sealed.sha256;
    return isRead && sameSha1 && sameSha256;
  }

  const FileSource& files_;
  const std::string& path_;
  const FileSource::Folder& root_;
  DigestsToCheck digests_;
  Digest sha1_{DigestAlgorithm::kSha1};
  Digest sha256_{DigestAlgorithm::kSha256};
  std::vector<char> piece_ = std::vector<char>(kPieceSize);
};

std::vector<std::string> changedFiles(const CodeObject& object, std::span<const Sealed> files,
                                      DigestsToCheck digests) {
  const auto root = object.files->folder(object.root);
  std::vector<std::string> differences(files.size());
  forEachPart(files.size(), kFilesAtOnce, [&](size_t begin, size_t end) {
    SealedFileReader reader(object, *root, digests);
    for (size_t i = begin; i < end; ++i) differences[i] = reader.differenceOf(files[i]);
  });
  std::erase(differences, "");
  return differences;
}

// In the root of a bundle, what never belongs to the seal.
bool isUnsealed(const std::string& path, const CodeObject& object) {
  constexpr std::string_view kNames[] = {kSignatureFolder, kSealFile, "_MASReceipt"};
  return path == object.executableName() ||
         std::find(std::begin(kNames), std::end(kNames), path) != std::end(kNames);
}

}  // namespace

bool BundleSeal::isSecondVersion() const {
  const PlistDictionary* whole = list_ ? list_->dictionary() : nullptr;
  return whole != nullptr && dictionaryForKey(*whole, "files2") != nullptr;
}

const PlistDictionary* BundleSeal::part(const char* first, const char* later) const {
  const PlistDictionary* whole = list_ ? list_->dictionary() : nullptr;
  return whole == nullptr ? nullptr : dictionaryForKey(*whole, isSecondVersion() ? later : first);
}

std::vector<std::string> BundleSeal::differences(const CodeObject& object,
                                                 DigestsToCheck digests) const {
  const PlistDictionary* files = part("files", "files2");
  const PlistDictionary* patterns = part("rules", "rules2");
  const auto rules = patterns == nullptr ? std::nullopt : SealRules::read(*patterns);
  if (files == nullptr || !rules) return {"the seal is unreadable: " + object.sealPath()};

  std::vector<Sealed> expected;
  std::unordered_map<std::string_view, size_t> places;
  for (const auto& [path, value] : *files) {
    places.emplace(path, expected.size());
    expected.push_back(sealedFrom(path, value));
  }
  std::vector<std::string> added;
  const auto compare = [&](const WalkedItem& item) {
    if (isUnsealed(item.relativePath, object)) return false;
    const auto known = places.find(item.relativePath);
    const bool isKnown = known != places.end();
    if (isKnown) expected[known->second].seenAs = item.kind;
    if (item.kind == ItemKind::kDirectory) return !isKnown;
    const bool older = !isSecondVersion() && item.kind != ItemKind::kFile;
    if (!older && !isKnown && rules->mustList(item.relativePath)) {
      added.push_back("file added: " + joinPath(object.root, item.relativePath));
    }
    return true;
  };
  ErrorText reason;
  if (!object.files->walk(object.root, compare, &reason)) {
    added.push_back("folder unreadable: " + reason.text());
  }
  std::vector<std::string> differences = changedFiles(object, expected, digests);
  differences.insert(differences.end(), added.begin(), added.end());
  std::stable_sort(differences.begin(), differences.end());
  return differences;
}

std::vector<NestedCode> BundleSeal::nestedCode(const CodeObject& object) const {
  std::vector<NestedCode> found;
  const PlistDictionary* files = isSecondVersion() ? part("files", "files2") : nullptr;
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
    const auto target = object.files->realPath(path);
    if (!target || !(*target + "/").starts_with(object.root + "/")) stray.push_back(path);
    return true;
  };
  // What nobody could look into may hold such a link.
  if (!object.files->walk(object.root, check, nullptr)) stray.push_back(object.root);
  return stray;
}

}  // namespace tovrek::signing
