#include "signing/ResourceSeal.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <memory>
#include <mutex>
#include <vector>

#include "formats/XmlPlistWriter.h"
#include "host/files.h"
#include "host/parallel.h"
#include "host/paths.h"
#include "signing/CodeObject.h"
#include "signing/FileHasher.h"

namespace tovrek::signing {
namespace {

using Verdict = ResourceRules::Verdict;

struct Resource {
  std::string path;
  ItemKind kind = ItemKind::kFile;
  Verdict verdict = Verdict::kUnsealed;   // by the first generation of rules
  Verdict verdict2 = Verdict::kUnsealed;  // by the second
  FileHashes hashes;
  std::string linkTarget;
};

bool isSealed(Verdict verdict) {
  return verdict == Verdict::kSealed || verdict == Verdict::kOptional;
}

// All that the rules name, sorted by path.
std::optional<std::vector<Resource>> findResources(const SealRequest& request, ErrorText* error) {
  std::vector<Resource> resources;
  bool good = true;
  const auto note = [&](const WalkedItem& item) {
    if (isOutsideSeal(item.relativePath, request.executableName)) return false;
    if (item.kind == ItemKind::kDirectory) return good;
    Resource resource;
    resource.path = item.relativePath;
    resource.kind = item.kind;
    // Old systems know no links.
    if (item.kind == ItemKind::kFile) resource.verdict = request.rules->rules.match(resource.path);
    resource.verdict2 = request.rules->rules2.match(resource.path);
    if (!isSealed(resource.verdict) && resource.verdict2 == Verdict::kUnsealed) return good;
    if (item.kind == ItemKind::kOther) {
      good = fail(error, fmt::format("{}: special files cannot be sealed", resource.path));
    }
    resources.push_back(std::move(resource));
    return good;
  };
  if (!walkDirectory(request.root, note, error) || !good) return std::nullopt;
  std::sort(resources.begin(), resources.end(),
            [](const Resource& a, const Resource& b) { return a.path < b.path; });
  return resources;
}

bool readResource(const std::string& root, bool withSha1, FileHasher* hasher, Resource* resource,
                  ErrorText* error) {
  const std::string path = joinPath(root, resource->path);
  if (resource->kind == ItemKind::kLink) {
    std::error_code code;
    resource->linkTarget = std::filesystem::read_symlink(path, code).string();
    return !code || fail(error, fmt::format("{}: {}", resource->path, code.message()));
  }
  ErrorText reason;
  const bool needsSha1 = withSha1 || isSealed(resource->verdict);
  if (hasher->hash(path, needsSha1, &resource->hashes, &reason)) return true;
  return fail(error, fmt::format("{}: {}", resource->path, reason.text()));
}

// Hashers that no thread is using.
class HasherPool {
 public:
  explicit HasherPool(ProgressReport* progress) : progress_(progress) {}

  std::unique_ptr<FileHasher> take() {
    const std::lock_guard lock(guard_);
    if (idle_.empty()) return std::make_unique<FileHasher>(progress_);
    auto hasher = std::move(idle_.back());
    idle_.pop_back();
    return hasher;
  }
  void giveBack(std::unique_ptr<FileHasher> hasher) {
    const std::lock_guard lock(guard_);
    idle_.push_back(std::move(hasher));
  }

 private:
  ProgressReport* progress_;
  std::mutex guard_;
  std::vector<std::unique_ptr<FileHasher>> idle_;
};

bool readResources(const SealRequest& request, std::vector<Resource>* resources, ErrorText* error) {
  constexpr size_t kFilesPerPart = 8;
  std::atomic<bool> good{true};
  std::mutex guard;
  HasherPool hashers(request.progress);
  forEachPart(resources->size(), kFilesPerPart, [&](size_t begin, size_t end) {
    auto hasher = hashers.take();
    for (size_t i = begin; i < end && good; ++i) {
      ErrorText reason;
      Resource& resource = (*resources)[i];
      if (readResource(request.root, request.withSha1, hasher.get(), &resource, &reason)) continue;
      const std::lock_guard lock(guard);
      good = fail(error, reason.text());
    }
    hashers.giveBack(std::move(hasher));
  });
  return good;
}

void writeFiles(const std::vector<Resource>& resources, XmlPlistWriter* writer) {
  writer->beginDictionary();
  for (const Resource& resource : resources) {
    if (!isSealed(resource.verdict)) continue;
    writer->key(resource.path);
    if (resource.verdict == Verdict::kSealed) {
      writer->data(resource.hashes.sha1);
      continue;
    }
    writer->beginDictionary();
    writer->key("hash");
    writer->data(resource.hashes.sha1);
    writer->key("optional");
    writer->boolean(true);
    writer->endDictionary();
  }
  writer->endDictionary();
}

void writeFiles2(const std::vector<Resource>& resources, bool withSha1, XmlPlistWriter* writer) {
  writer->beginDictionary();
  for (const Resource& resource : resources) {
    if (resource.verdict2 == Verdict::kUnsealed) continue;
    writer->key(resource.path);
    writer->beginDictionary();
    if (resource.kind == ItemKind::kFile && withSha1) {
      writer->key("hash");
      writer->data(resource.hashes.sha1);
    }
    if (resource.kind == ItemKind::kFile) {
      writer->key("hash2");
      writer->data(resource.hashes.sha256);
    }
    if (resource.verdict2 == Verdict::kOptional) {
      writer->key("optional");
      writer->boolean(true);
    }
    if (resource.kind == ItemKind::kLink) {
      writer->key("symlink");
      writer->string(resource.linkTarget);
    }
    writer->endDictionary();
  }
  writer->endDictionary();
}

}  // namespace

bool isOutsideSeal(const std::string& relativePath, const std::string& executableName) {
  return relativePath == kSignatureFolder || relativePath == kSealFile ||
         relativePath == "_MASReceipt" || relativePath == executableName;
}

std::optional<std::string> sealResources(const SealRequest& request, ErrorText* error) {
  auto resources = findResources(request, error);
  if (!resources || !readResources(request, &*resources, error)) return std::nullopt;
  XmlPlistWriter writer(XmlPlistLayout::kSignature);
  writer.beginDictionary();
  writer.key("files");
  writeFiles(*resources, &writer);
  writer.key("files2");
  writeFiles2(*resources, request.withSha1, &writer);
  writer.key("rules");
  writer.value(request.rules->rules.plist());
  writer.key("rules2");
  writer.value(request.rules->rules2.plist());
  writer.endDictionary();
  return writer.finish();
}

}  // namespace tovrek::signing
