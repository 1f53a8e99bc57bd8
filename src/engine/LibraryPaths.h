// The libraries that an executable is made to load.
#pragma once

#include <string_view>

#include "engine/binary_type.h"

namespace tovrek::macho {

struct LibraryPaths {
  std::string_view wrapper, logger;
};

inline constexpr LibraryPaths kApplicationPaths = {
    "@executable_path/OrvaneDylib.bundle/OrvaneDylib.dylib",
    "@executable_path/Frameworks/OrvaneLogger.framework/OrvaneLogger"};
inline constexpr LibraryPaths kExtensionPaths = {
    "@executable_path/../../OrvaneDylib.bundle/OrvaneDylib.dylib",
    "@executable_path/../../Frameworks/OrvaneLogger.framework/OrvaneLogger"};

// None where nothing is inserted.
constexpr const LibraryPaths* pathsFor(int binaryType) {
  if (binaryType == kApplication) return &kApplicationPaths;
  if (binaryType == kAppExtension) return &kExtensionPaths;
  return nullptr;
}

}  // namespace tovrek::macho
