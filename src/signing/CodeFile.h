// A file with code, mapped and taken apart.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "signing/CodeObject.h"
#include "signing/FileSource.h"
#include "signing/MachOImage.h"

namespace tovrek::signing {

class CodeFile {
 public:
  // None, with the reason, when the file cannot be read or is a damaged Mach-O file. What is no
  // Mach-O file at all (a script, a static archive) is a file without images.
  static std::optional<CodeFile> open(const std::string& path, ErrorText* error,
                                      const FileSource& files = FileSource::disk());

  bool isUniversal() const { return universal_; }
  // One per architecture, in the order of the file; empty when this is no Mach-O file.
  const std::vector<MachOImage>& images() const { return images_; }
  bool isMachO() const { return !images_.empty(); }
  std::string_view bytes() const;
  // Whether releasePages() may be called for parts of it.
  bool isMapped() const { return contents_.isMapped; }
  // The image that stands for all where one is asked for: the first of a 64-bit ARM, else the
  // first.
  const MachOImage& mainImage() const;
  // "Mach-O thin (arm64)", "Mach-O universal (armv7 arm64)" or "generic".
  std::string formatText() const;

 private:
  FileSource::Contents contents_;
  bool universal_ = false;
  std::vector<MachOImage> images_;
};

// "app bundle with Mach-O thin (arm64)" and the like.
std::string formatText(const CodeObject& object, const CodeFile& file);

}  // namespace tovrek::signing
