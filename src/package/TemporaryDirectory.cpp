#include "package/TemporaryDirectory.h"

#include <fmt/format.h>

#include "host/files.h"
#include "host/host_info.h"
#include "host/paths.h"
#include "host/scratch.h"

namespace tovrek {

TemporaryDirectory::~TemporaryDirectory() {
  if (!tempDir_.empty() && itemExistsNoFollow(tempDir_)) removeItem(tempDir_);
}

bool TemporaryDirectory::Create(ErrorText* error) {
  return createTempDir(true, true, error);
}

bool TemporaryDirectory::CreateTempDirForCma(ErrorText* error) {
  return createTempDir(true, false, error);
}

bool TemporaryDirectory::createTempDir(bool create, bool andPackageDir, ErrorText* error) {
  if (!create) return false;
  const auto notCreated = [error](const ErrorText& why) {
    return fail(error, fmt::format("Failed to create temp folder. Error: {}", why.text()));
  };
  ErrorText reason;
  const auto systemFolder = systemTemporaryFolder(&reason);
  if (!systemFolder) return notCreated(reason);
  const std::string family = joinPath(*systemFolder, "com.orvane.wex");
  const std::string folder = joinPath(family, uniqueString());
  if (itemExistsNoFollow(folder)) {
    return fail(error, "Failed to create temp folder because folder already exits.");
  }
  // Registered first: an interruption may come as soon as the folder is there.
  removedOnSignal_.emplace(folder);
  if (!createDirectories(family, &reason) || !createPrivateDirectory(folder, &reason)) {
    return notCreated(reason);
  }
  tempDir_ = folder;
  announceScratchFolder(tempDir_);
  if (andPackageDir) {
    packageDir_ = joinPath(tempDir_, "ORVANE_PACKAGE");
    if (!createDirectories(packageDir_, &reason)) {
      return fail(error, fmt::format("Failed to create output package folder at temporary file: "
                                     "{}, error description: {}",
                                     packageDir_, reason.text()));
    }
  }
  created_ = true;
  return true;
}

}  // namespace tovrek
