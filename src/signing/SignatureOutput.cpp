#include "signing/SignatureOutput.h"

#include <fmt/format.h>

#include <algorithm>
#include <mutex>
#include <set>
#include <vector>

#include "host/AtomicFile.h"
#include "host/bytes.h"
#include "host/files.h"
#include "host/paths.h"
#include "macho/FatFile.h"
#include "macho/layout.h"
#include "signing/CodeImage.h"
#include "signing/CodeSignature.h"
#include "signing/SuperBlob.h"

namespace tovrek::signing {
namespace {

// Each architecture of a universal file starts on a page of the largest size.
constexpr uint32_t kSliceAlignmentLog2 = 14;

// One architecture with its place in the new file. Where everything goes is known before the first
// byte is hashed, so hashing and writing are one pass.
struct PlacedImage {
  CodeImage code;
  std::optional<SignatureBuilder> builder;  // none: no signature is to follow
  SignatureBuilder::ExecutableSegment text;
  uint64_t signatureSize = 0;
  macho::FatSlice slice;
  std::string name;  // of the architecture
};

macho::FatSlice sliceOf(const MachOImage& image, uint64_t size) {
  return {image.cputype, image.cpusubtype, 0, size, kSliceAlignmentLog2};
}

// The hardened runtime takes the place of the system that a program for macOS was built for.
uint32_t runtimeVersionOf(const MachOImage& image) {
  return image.version && image.version->platform == macho::kPlatformMacos ? image.version->sdk : 0;
}

std::optional<PlacedImage> place(const MachOImage& image, const SignatureContents& contents,
                                 bool isBundle, ErrorText* error) {
  SignatureBuilder builder(contents, image.isMainExecutable(),
                           isBundle ? std::string_view(contents.infoPlist) : image.infoPlist,
                           runtimeVersionOf(image));
  const auto limit = codeLimitFor(image, error);
  if (!limit) return std::nullopt;
  const auto placement = placeSignature(image, builder.reservedSize(*limit), error);
  if (!placement) return std::nullopt;
  const MachOImage::Segment* text = image.segment(macho::kTextSegment);
  SignatureBuilder::ExecutableSegment segment;
  if (text != nullptr) segment = {text->fileoff, text->filesize};
  return PlacedImage{CodeImage(placement->head, asText(image.bytes.bytes()), *limit),
                     std::move(builder),
                     segment,
                     placement->signatureSize,
                     sliceOf(image, *limit + placement->signatureSize),
                     image.archName()};
}

// Writes one image into the file, through all processors at once.
class ImageWriter {
 public:
  ImageWriter(const PlacedImage& image, AtomicFile* file, ProgressReport* progress)
      : image_(image), file_(*file), progress_(progress) {}

  bool write(const SignatureContents& contents, ErrorText* error) {
    const auto sink = [&](uint64_t offset, std::string_view bytes) { return take(offset, bytes); };
    if (!image_.builder) return image_.code.copyTo(sink) || fail(error, reason_.text());
    const auto hashes = image_.code.pageHashes(contents.info.pageSizeLog2, contents.digests, sink);
    if (!hashes) return fail(error, reason_.text());
    const auto blobs = image_.builder->build(image_.code.limit(), *hashes, image_.text, error);
    if (!blobs) return false;
    std::string signature = makeSuperBlob(kEmbeddedSignatureMagic, *blobs);
    if (signature.size() > image_.signatureSize) return fail(error, "signature too large to embed");
    signature.resize(image_.signatureSize);
    return file_.writeAt(image_.slice.offset + image_.code.limit(), signature, error);
  }

 private:
  bool take(uint64_t offset, std::string_view bytes) {
    if (progress_ != nullptr) progress_->add(bytes.size());
    const uint64_t at = image_.slice.offset + offset;
    ErrorText reason;
    if (file_.writeAt(at, bytes, &reason)) {
      file_.startFlush(at, bytes.size());
      return true;
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    reason_ = reason;
    return false;
  }

  const PlacedImage& image_;
  AtomicFile& file_;
  ProgressReport* progress_;
  std::mutex mutex_;
  ErrorText reason_;
};

// Whatever goes wrong with one image of a universal file names its architecture.
bool failFor(const std::string& architecture, bool universal, const ErrorText& reason,
             ErrorText* error) {
  return fail(error, universal ? fmt::format("{} (architecture {})", reason.text(), architecture)
                               : reason.text());
}

bool writeImages(std::vector<PlacedImage> images, bool universal, const SignatureContents& contents,
                 AtomicFile* file, ErrorText* error) {
  if (universal) {
    std::vector<macho::FatSlice> slices;
    for (const PlacedImage& image : images) slices.push_back(image.slice);
    if (!macho::layOutFatFile(slices, error)) return false;
    for (size_t i = 0; i < images.size(); ++i) images[i].slice = slices[i];
    if (!file->writeAt(0, macho::fatFileHeader(slices), error)) return false;
  }
  for (const PlacedImage& image : images) {
    ErrorText reason;
    if (!ImageWriter(image, file, contents.progress).write(contents, &reason)) {
      return failFor(image.name, universal, reason, error);
    }
  }
  return true;
}

// Files that become visible together: all are written beside their places first.
class FileGroup {
 public:
  AtomicFile* add(const std::string& path, ErrorText* error) {
    files_.push_back(std::make_unique<AtomicFile>());
    return files_.back()->open(path, error) ? files_.back().get() : nullptr;
  }
  bool add(const std::string& path, std::string_view contents, ErrorText* error) {
    AtomicFile* file = add(path, error);
    return file != nullptr && file->write(contents, error);
  }
  // What can fail for want of room fails before the first file shows.
  bool commit(ErrorText* error) {
    return std::all_of(files_.begin(), files_.end(),
                       [&](const auto& file) { return file->flush(error); }) &&
           std::all_of(files_.begin(), files_.end(),
                       [&](const auto& file) { return file->commit(error); });
  }

 private:
  std::vector<std::unique_ptr<AtomicFile>> files_;
};

// The signature folder, in which nothing may stay of an older signature.
class SignatureFolder {
 public:
  explicit SignatureFolder(const CodeObject& object) : path_(object.signatureFolder()) {}

  bool create(ErrorText* error) {
    existed_ = isDirectory(path_);
    return createDirectories(path_, error);
  }
  // After a failure: leaves no trace of a folder that was not there.
  bool abandon() {
    if (!existed_) removeItem(path_);
    return false;
  }
  bool removeAllBut(const std::set<std::string>& kept, ErrorText* error) const {
    const auto names = listDirectory(path_, error);
    return names && std::ranges::all_of(*names, [&](const std::string& name) {
             return kept.contains(name) || removeItem(joinPath(path_, name), error);
           });
  }

 private:
  std::string path_;
  bool existed_ = true;
};

}  // namespace

bool writeMachO(const CodeObject& object, const CodeFile& file, const SignatureContents& contents,
                const std::optional<std::string>& seal, ErrorText* error) {
  std::vector<PlacedImage> images;
  for (const MachOImage& image : file.images()) {
    ErrorText reason;
    auto placed = place(image, contents, object.isBundle(), &reason);
    if (!placed) return failFor(image.archName(), file.isUniversal(), reason, error);
    images.push_back(std::move(*placed));
  }
  SignatureFolder folder(object);
  if (seal && !folder.create(error)) return false;
  FileGroup group;
  const bool sealWritten = !seal || group.add(object.sealPath(), *seal, error);
  AtomicFile* code = sealWritten ? group.add(object.executable, error) : nullptr;
  const bool written = code != nullptr &&
                       writeImages(std::move(images), file.isUniversal(), contents, code, error) &&
                       (contents.dryRun || group.commit(error));
  if (!written || contents.dryRun) return folder.abandon() || written;
  return !seal || folder.removeAllBut({kSealFile}, error);
}

bool writeBeside(const CodeObject& object, const CodeFile& file, const SignatureContents& contents,
                 const std::optional<std::string>& seal, ErrorText* error) {
  SignatureContents whole = contents;
  whole.info.pageSizeLog2 = 0;
  const SignatureBuilder builder(whole, false, whole.infoPlist);
  const CodeImage code("", file.bytes(), file.bytes().size());
  const auto hashes = code.pageHashes(whole.info.pageSizeLog2, whole.digests);
  const auto blobs = builder.build(code.limit(), *hashes, {}, error);
  if (!blobs) return false;
  SignatureFolder folder(object);
  if (!folder.create(error)) return false;
  FileGroup group;
  bool good = group.add(object.sealPath(), *seal, error);
  std::set<std::string> kept{kSealFile};
  for (const SignatureFile& part : kSignatureFiles) {
    const auto blob = blobs->find(part.slot);
    if (blob == blobs->end()) continue;
    kept.insert(part.name);
    // The message stands in its file without the header of a blob.
    const bool isMessage = part.slot == kCmsSlot;
    good = good &&
           group.add(joinPath(object.signatureFolder(), part.name),
                     isMessage ? payloadOf(blob->second) : std::string_view(blob->second), error);
  }
  if (!good || contents.dryRun || !group.commit(error)) {
    return folder.abandon() || (good && contents.dryRun);
  }
  return folder.removeAllBut(kept, error);
}

bool removeSignatures(const CodeObject& object, const CodeFile& file, ErrorText* error) {
  std::vector<PlacedImage> images;
  for (const MachOImage& image : file.images()) {
    const auto placement = removeSignature(image, error);
    if (!placement) return false;
    const uint64_t size = placement->codeLimit;
    images.push_back({CodeImage(placement->head, asText(image.bytes.bytes()), size),
                      {},
                      {},
                      0,
                      sliceOf(image, size),
                      image.archName()});
  }
  AtomicFile code;
  const bool written =
      images.empty() ||
      (code.open(object.executable, error) &&
       writeImages(std::move(images), file.isUniversal(), {}, &code, error) && code.commit(error));
  if (!written) return false;
  const bool hasFolder = object.isBundle() && fileExists(object.signatureFolder());
  return !hasFolder || removeItem(object.signatureFolder(), error);
}

}  // namespace tovrek::signing
