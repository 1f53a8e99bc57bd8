#include "signing/verify/resource_check.h"

#include <algorithm>
#include <map>

#include "formats/Digest.h"
#include "host/parallel.h"
#include "host/paths.h"
#include "signing/verify/SealRules.h"

namespace tovrek::signing {
namespace {

constexpr size_t kPieceSize = 128 << 10;  // stays in a core's cache
constexpr size_t kFilesAtOnce = 64;

// A seal's entry for one file.
struct Sealed {
  std::string sha1, sha256, link;
  bool optional = false;
  bool isNested = false;               // code with its own signature
  ItemKind seenAs = ItemKind::kOther;  // by the walk: a file or a link
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

// Reads files and compares them with what was sealed. For one thread: keeps from file to file what
// is costly to make.
class SealedFileReader {
 public:
  SealedFileReader(const CodeObject& object, const FileSource::Folder& root, DigestsToCheck digests)
      : files_(*object.files), path_(object.root), root_(root), digests_(digests) {}

  // What is wrong with one sealed file; empty when it is as it was.
  std::string differenceOf(const std::string& relative, const Sealed& sealed) {
    const std::string path = joinPath(path_, relative);
    if (sealed.seenAs == ItemKind::kOther && !files_.kindAt(path)) {
      return sealed.optional ? "" : "file missing: " + path;
    }
    return isUnchanged(relative, path, sealed) ? "" : "file modified: " + path;
  }

 private:
  bool isUnchanged(const std::string& relative, const std::string& path, const Sealed& sealed) {
    if (sealed.isNested) return true;
    // Only what the walk has not met, as it stands behind a link, is asked for its kind.
    const bool isLink =
        sealed.seenAs == ItemKind::kLink ||
        (sealed.seenAs == ItemKind::kOther && files_.kindAt(path) == ItemKind::kLink);
    if (!isLink) return hasContents(relative, sealed);
    return !sealed.link.empty() && files_.linkTarget(path) == sealed.link;
  }

  bool hasContents(const std::string& relative, const Sealed& sealed) {
    const bool needsSha1 =
        !sealed.sha1.empty() && (digests_ == DigestsToCheck::kAll || sealed.sha256.empty());
    const bool needsSha256 = !sealed.sha256.empty();
    if (!needsSha1 && !needsSha256) return false;
    const bool isRead = root_.readPieces(relative, piece_, [&](std::string_view bytes) {
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

std::vector<std::string> changedFiles(const CodeObject& object,
                                      const std::map<std::string, Sealed>& expected,
                                      DigestsToCheck digests) {
  const auto root = object.files->folder(object.root);
  std::vector<const std::pair<const std::string, Sealed>*> files;
  for (const auto& file : expected) files.push_back(&file);
  std::vector<std::string> differences(files.size());
  forEachPart(files.size(), kFilesAtOnce, [&](size_t begin, size_t end) {
    SealedFileReader reader(object, *root, digests);
    for (size_t i = begin; i < end; ++i) {
      differences[i] = reader.differenceOf(files[i]->first, files[i]->second);
    }
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
  std::vector<std::string> added;
  const auto compare = [&](const WalkedItem& item) {
    if (isUnsealed(item.relativePath, object)) return false;
    const auto known = expected.find(item.relativePath);
    if (known != expected.end()) known->second.seenAs = item.kind;
    if (item.kind == ItemKind::kDirectory) return known == expected.end();
    const bool older = !second && item.kind != ItemKind::kFile;
    if (!older && known == expected.end() && rules->mustList(item.relativePath)) {
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
    const auto target = object.files->realPath(path);
    if (!target || !(*target + "/").starts_with(object.root + "/")) stray.push_back(path);
    return true;
  };
  // What nobody could look into may hold such a link.
  if (!object.files->walk(object.root, check, nullptr)) stray.push_back(object.root);
  return stray;
}

}  // namespace tovrek::signing
