#include "companions/signing/SignatureOutput.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <vector>

#include "companions/signing/CodeSignature.h"
#include "companions/signing/SuperBlob.h"
#include "companions/signing/bytes.h"
#include "host/AtomicFile.h"
#include "host/files.h"
#include "host/paths.h"
#include "macho/FatFile.h"
#include "macho/layout.h"

namespace tovrek::signing {
namespace {

// Each architecture of a universal file starts on a page of the largest size.
constexpr uint32_t kSliceAlignmentLog2 = 14;

// One architecture, ready to be written.
struct SignedImage {
  CodeImage code;
  std::string signature;  // whole area, filled up with zeros
  macho::FatSlice place;
};

bool writeZeros(AtomicFile* file, uint64_t count, ErrorText* error) {
  return count == 0 || file->write(std::string(count, '\0'), error);
}

std::optional<SignedImage> signImage(const MachOImage& image, const SignatureContents& contents,
                                     bool isBundle, ErrorText* error) {
  const SignatureBuilder builder(contents, image.isMainExecutable(),
                                 isBundle ? std::string_view(contents.infoPlist) : image.infoPlist);
  const auto limit = codeLimitFor(image, error);
  if (!limit) return std::nullopt;
  const auto placement = placeSignature(image, builder.reservedSize(*limit), error);
  if (!placement) return std::nullopt;

  CodeImage code(placement->head, asText(image.bytes.bytes()), *limit);
  const MachOImage::Segment* text = image.segment(macho::kTextSegment);
  const auto blobs = builder.build(
      code,
      text == nullptr ? SignatureBuilder::ExecutableSegment{}
                      : SignatureBuilder::ExecutableSegment{text->fileoff, text->filesize},
      error);
  if (!blobs) return std::nullopt;
  std::string signature = makeSuperBlob(kEmbeddedSignatureMagic, *blobs);
  if (signature.size() > placement->signatureSize) {
    fail(error, "signature too large to embed");
    return std::nullopt;
  }
  signature.resize(placement->signatureSize);
  macho::FatSlice place{image.cputype, image.cpusubtype, 0, *limit + signature.size(),
                        kSliceAlignmentLog2};
  return SignedImage{std::move(code), std::move(signature), place};
}

bool writeImage(const SignedImage& image, AtomicFile* file, ErrorText* error) {
  constexpr size_t kPieceSize = size_t{1} << 22;
  bool good = true;
  for (uint64_t at = 0; good && at < image.code.limit(); at += kPieceSize) {
    good = image.code.forEachRun(at, kPieceSize,
                                 [&](std::string_view run) { return file->write(run, error); });
  }
  return good && file->write(image.signature, error);
}

bool writeImages(const std::vector<SignedImage>& images, bool universal, AtomicFile* file,
                 ErrorText* error) {
  if (!universal) return writeImage(images.front(), file, error);
  std::vector<macho::FatSlice> slices;
  for (const SignedImage& image : images) slices.push_back(image.place);
  if (!macho::layOutFatFile(slices, error)) return false;
  const std::string header = macho::fatFileHeader(slices);
  if (!file->write(header, error)) return false;
  uint64_t at = header.size();
  for (size_t i = 0; i < images.size(); ++i) {
    if (!writeZeros(file, slices[i].offset - at, error)) return false;
    if (!writeImage(images[i], file, error)) return false;
    at = slices[i].offset + slices[i].size;
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
  bool commit(ErrorText* error) {
    return std::all_of(files_.begin(), files_.end(),
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
  void removeAllBut(const std::set<std::string>& kept) const {
    const auto names = listDirectory(path_);
    for (const std::string& name : names.value_or(std::vector<std::string>())) {
      if (kept.count(name) == 0) removeItem(joinPath(path_, name));
    }
  }

 private:
  std::string path_;
  bool existed_ = true;
};

}  // namespace

bool writeMachO(const CodeObject& object, const CodeFile& file, const SignatureContents& contents,
                const std::optional<std::string>& seal, ErrorText* error) {
  std::vector<SignedImage> images;
  for (const MachOImage& image : file.images()) {
    ErrorText reason;
    auto made = signImage(image, contents, object.isBundle(), &reason);
    if (!made) {
      return fail(error, file.isUniversal()
                             ? fmt::format("{} (architecture {})", reason.text(), image.archName())
                             : reason.text());
    }
    images.push_back(std::move(*made));
  }
  SignatureFolder folder(object);
  if (seal && !folder.create(error)) return false;
  FileGroup group;
  const bool sealWritten = !seal || group.add(object.sealPath(), *seal, error);
  AtomicFile* code = sealWritten ? group.add(object.executable, error) : nullptr;
  const bool written = code != nullptr && writeImages(images, file.isUniversal(), code, error) &&
                       group.commit(error);
  if (!written) return folder.abandon();
  if (seal) folder.removeAllBut({kSealFile});
  return true;
}

bool writeBeside(const CodeObject& object, const CodeFile& file, const SignatureContents& contents,
                 const std::optional<std::string>& seal, ErrorText* error) {
  SignatureContents whole = contents;
  whole.info.pageSizeLog2 = 0;
  const SignatureBuilder builder(whole, false, whole.infoPlist);
  const auto blobs = builder.build(CodeImage("", file.bytes(), file.bytes().size()), {}, error);
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
  if (!good || !group.commit(error)) return folder.abandon();
  folder.removeAllBut(kept);
  return true;
}

bool removeSignatures(const CodeObject& object, const CodeFile& file, ErrorText* error) {
  std::vector<SignedImage> images;
  for (const MachOImage& image : file.images()) {
    const auto placement = removeSignature(image, error);
    if (!placement) return false;
    macho::FatSlice place{image.cputype, image.cpusubtype, 0, placement->codeLimit,
                          kSliceAlignmentLog2};
    images.push_back(
        {CodeImage(placement->head, asText(image.bytes.bytes()), placement->codeLimit), "", place});
  }
  AtomicFile code;
  const bool written = images.empty() || (code.open(object.executable, error) &&
                                          writeImages(images, file.isUniversal(), &code, error) &&
                                          code.commit(error));
  if (!written) return false;
  const bool hasFolder = object.isBundle() && fileExists(object.signatureFolder());
  return !hasFolder || removeItem(object.signatureFolder(), error);
}

}  // namespace tovrek::signing
