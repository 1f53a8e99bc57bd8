#include "signing/CodeFile.h"

#include <fmt/format.h>

#include "host/bytes.h"
#include "macho/FatFile.h"
#include "macho/pointer_models.h"

namespace tovrek::signing {
namespace {

// Java class files share the magic number of universal files; their next word is a version that
// no count of architectures reaches.
constexpr uint32_t kMostArchitectures = 40;

bool looksLikeMachO(macho::ByteView bytes) {
  const auto table = macho::FatTable::find(bytes);
  if (table && !table->isWide()) return table->count() <= kMostArchitectures;
  return macho::hasThinMagic(bytes);
}

}  // namespace

std::optional<CodeFile> CodeFile::open(const std::string& path, ErrorText* error,
                                       const FileSource& files) {
  auto contents = files.map(path, error);
  if (!contents) return std::nullopt;
  CodeFile file;
  file.contents_ = std::move(*contents);
  const macho::ByteView bytes(file.contents_.bytes);
  if (!looksLikeMachO(bytes)) return file;

  macho::FatFile fat;
  ErrorText reason;
  if (!macho::FatFile::read(bytes, &fat, &reason)) {
    fail(error, "malformed Mach-O file: " + reason.text());
    return std::nullopt;
  }
  file.universal_ = fat.fat;
  for (const macho::FatSlice& slice : fat.slices) {
    auto image = MachOImage::parse(bytes.sub(slice.offset, slice.size), &reason);
    if (!image) {
      fail(error, fmt::format("malformed Mach-O file: {}", reason.text()));
      return std::nullopt;
    }
    file.images_.push_back(std::move(*image));
  }
  if (file.images_.empty()) {
    fail(error, "malformed Mach-O file: no architectures");
    return std::nullopt;
  }
  return file;
}

std::string_view CodeFile::bytes() const {
  return asText(contents_.bytes);
}

const MachOImage& CodeFile::mainImage() const {
  for (const MachOImage& image : images_) {
    if (image.cputype == (macho::kCpuArm | macho::kCpuArch64)) return image;
  }
  return images_.front();
}

std::string CodeFile::formatText() const {
  if (!isMachO()) return "generic";
  std::string names;
  for (const MachOImage& image : images_) {
    if (!names.empty()) names += ' ';
    names += image.archName();
  }
  return fmt::format("Mach-O {} ({})", universal_ ? "universal" : "thin", names);
}

std::string formatText(const CodeObject& object, const CodeFile& file) {
  if (!object.isBundle()) return file.formatText();
  if (!object.hasExecutable()) return "bundle";
  const bool isApp = stringForKeyOr(object.info, "CFBundlePackageType", "") == "APPL";
  return fmt::format("{} with {}", isApp ? "app bundle" : "bundle", file.formatText());
}

}  // namespace tovrek::signing
