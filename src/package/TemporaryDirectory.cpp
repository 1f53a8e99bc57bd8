#include "package/TemporaryDirectory.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

#include "host/files.h"
#include "host/host_info.h"
#include "host/paths.h"
#include "host/scratch.h"
#include "log/SystemLog.h"

namespace tovrek {
namespace {

// The common parent of all scratch folders of this user; empty where others have taken its names.
// Temporary folders are shared by all users, so a folder of another one, or one that others may
// enter, is left alone for one beside it.
bool makeFamily(const std::string& systemFolder, std::string* family, ErrorText* error) {
  constexpr char kName[] = "com.orvane.wex";
  const std::string usual = joinPath(systemFolder, kName);
  for (const std::string& path : {usual, fmt::format("{}-{}", usual, userId())}) {
    *family = path;
    if (createPrivateDirectory(path, error) || isPrivateDirectory(path)) return true;
    // The second is for where the first is another's, not for where none can be made.
    if (!itemExistsNoFollow(path)) return false;
  }
  family->clear();
  return true;
}

// Like those of uniqueString().
bool isRunName(const std::string& name) {
  return name.size() == 36 && std::ranges::all_of(name, [](unsigned char c) {
           return std::isxdigit(c) != 0 || c == '-';
         });
}

// Removes what runs that were killed have left. Whoever holds a folder's lock still works in it.
std::vector<std::string> removeLeftovers(const std::string& family) {
  std::vector<std::string> removed;
  for (const std::string& name : listDirectory(family).value_or(std::vector<std::string>())) {
    const std::string path = joinPath(family, name);
    if (!isRunName(name) || !isPrivateDirectory(path)) continue;
    FolderLock lock;
    if (lock.take(path) && removeItem(path)) removed.push_back(path);
  }
  return removed;
}

bool failToCreate(ErrorText* error, const ErrorText& reason) {
  return fail(error, fmt::format("Failed to create temp folder. Error: {}", reason.text()));
}

}  // namespace

TemporaryDirectory::~TemporaryDirectory() {
  if (tempDir_.empty()) return;
  ErrorText reason;
  // A second attempt costs nothing and gets over what was in the way for a moment.
  if (removeItem(tempDir_, &reason) || removeItem(tempDir_, &reason)) return;
  if (itemExistsNoFollow(tempDir_)) {
    systemLog(fmt::format("WARNING: {} could not be removed: {}", tempDir_, reason.text()));
  }
}

bool TemporaryDirectory::Create(ErrorText* error) {
  return createTempDir(true, true, error);
}

bool TemporaryDirectory::CreateTempDirForCma(ErrorText* error) {
  return createTempDir(true, false, error);
}

bool TemporaryDirectory::makeFolder(const std::string& family, ErrorText* error) {
  // Another run that clears up may take a folder for left over before its lock is held.
  constexpr int kAttempts = 8;
  ErrorText reason;
  for (int i = 0; i < kAttempts; ++i) {
    const std::string folder = joinPath(family, uniqueString());
    if (itemExistsNoFollow(folder)) {
      return fail(error, "Failed to create temp folder because folder already exits.");
    }
    // Registered first: an interruption may come as soon as the folder is there.
    removedOnSignal_.emplace(folder);
    if (!createPrivateDirectory(folder, &reason)) break;
    tempDir_ = folder;
    if (lock_.take(folder, &reason)) return true;
    removeItem(folder);
    tempDir_.clear();
  }
  return failToCreate(error, reason);
}

bool TemporaryDirectory::createTempDir(bool create, bool andPackageDir, ErrorText* error) {
  if (!create) return false;
  ErrorText reason;
  const auto systemFolder = systemTemporaryFolder(&reason);
  if (!systemFolder) return failToCreate(error, reason);
  std::string family;
  if (!makeFamily(*systemFolder, &family, &reason)) return failToCreate(error, reason);
  if (family.empty()) {
    // Nobody can take a name that is made up now. What a killed run leaves there stays, as such a
    // name could also be another program's.
    systemLog(fmt::format("WARNING: the folders for runs in {} belong to others", *systemFolder));
    family = *systemFolder;
  } else {
    leftovers_ = removeLeftovers(family);
  }
  if (!makeFolder(family, error)) return false;
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
