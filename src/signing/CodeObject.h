// What a path given for signing denotes.
#pragma once

#include <optional>
#include <string>

#include "formats/PlistValue.h"
#include "host/ErrorText.h"
#include "signing/FileSource.h"

namespace tovrek::signing {

// Names inside a bundle.
inline constexpr const char* kSignatureFolder = "_CodeSignature";
inline constexpr const char* kSealFile = "CodeResources";
inline constexpr const char* kInfoPlistFile = "Info.plist";

// A bundle in the flat layout of iOS (Info.plist and executable in its root), or a single file.
struct CodeObject {
  const FileSource* files = &FileSource::disk();  // that the paths are of
  std::string root;                               // the bundle's folder; empty for a single file
  std::string executable;  // the file with the code; for a bundle without any, its Info.plist
  std::string infoPlist;   // the bytes of the bundle's Info.plist
  PlistDictionary info;    // the same, parsed; empty when it is no property list

  // A folder is a bundle; a file that is the executable of the bundle it lies in stands for that
  // bundle; any other file stands for itself. None, with the reason, for a missing path and for
  // folders that are no flat bundles ("bundle format unrecognized, invalid, or unsuitable").
  static std::optional<CodeObject> resolve(const std::string& path, ErrorText* error,
                                           const FileSource& files = FileSource::disk());

  bool isBundle() const { return !root.empty(); }
  bool hasExecutable() const;
  // Inside a bundle.
  std::string signatureFolder() const;
  std::string sealPath() const;
  // The code's file name relative to the bundle.
  std::string executableName() const;
};

}  // namespace tovrek::signing
