#include "programs/zip/FileList.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/files.h"
#include "host/paths.h"

namespace tovrek::zip {
namespace {

// The name in the archive for an operand: without what leads up to the working folder.
std::string nameForOperand(std::string name) {
  for (;;) {
    if (name.starts_with('/')) {
      name.erase(0, 1);
    } else if (name.starts_with("./")) {
      name.erase(0, 2);
    } else {
      break;
    }
  }
  while (name.ends_with('/')) name.pop_back();
  return name == "." ? std::string() : name;
}

}  // namespace

bool FileList::collect(ErrorText* error) {
  struct stat info {};
  if (::stat(options_.archive.c_str(), &info) == 0) archive_ = {info.st_dev, info.st_ino};
  for (const std::string& operand : options_.operands) {
    if (!itemExistsNoFollow(operand)) {
      warnings_.push_back("name not matched: " + operand);
    } else {
      add(operand, nameForOperand(operand));
    }
  }
  std::stable_sort(items_.begin(), items_.end(),
                   [](const SourceItem& a, const SourceItem& b) { return a.name < b.name; });
  for (size_t i = 1; i < items_.size(); ++i) {
    const SourceItem& a = items_[i - 1];
    const SourceItem& b = items_[i];
    const bool sameItem = a.info.st_dev == b.info.st_dev && a.info.st_ino == b.info.st_ino;
    if (a.name == b.name && !sameItem) {
      return fail(error, fmt::format("cannot repeat names in zip file: {} and {}", a.path, b.path));
    }
  }
  items_.erase(
      std::unique(items_.begin(), items_.end(),
                  [](const SourceItem& a, const SourceItem& b) { return a.name == b.name; }),
      items_.end());
  return true;
}

void FileList::add(const std::string& path, const std::string& name) {
  SourceItem item{options_.junkPaths ? lastPathComponent(name) : name, path};
  if (::lstat(path.c_str(), &item.info) != 0) {
    warnings_.push_back("name not matched: " + path);
    return;
  }
  if (S_ISLNK(item.info.st_mode) && !options_.storeLinks) {
    if (::stat(path.c_str(), &item.info) != 0) {
      warnings_.push_back("name not matched: " + path);
      return;
    }
  }
  if (S_ISDIR(item.info.st_mode)) {
    item.name = name;
    addFolder(std::move(item));
  } else if (!S_ISREG(item.info.st_mode) && !S_ISLNK(item.info.st_mode)) {
    warnings_.push_back("ignoring special file: " + path);
  } else if (Identity(item.info.st_dev, item.info.st_ino) != archive_ &&
             options_.admits(item.name)) {
    items_.push_back(std::move(item));
  }
}

void FileList::addFolder(SourceItem item) {
  const Identity identity{item.info.st_dev, item.info.st_ino};
  if (std::find(open_.begin(), open_.end(), identity) != open_.end()) {
    warnings_.push_back("link leads back to a folder above it: " + item.path);
    incomplete_ = true;
    return;
  }
  const std::string path = item.path;
  const std::string prefix = item.name.empty() ? std::string() : item.name + "/";
  const bool hasEntry =
      !prefix.empty() && !options_.withoutFolders && !options_.junkPaths && options_.admits(prefix);
  if (hasEntry) {
    item.name = prefix;
    items_.push_back(std::move(item));
  }
  if (!options_.recurse) return;
  const auto names = listDirectory(path);
  if (!names) {
    warnings_.push_back("could not open for reading: " + path);
    incomplete_ = true;
    return;
  }
  open_.push_back(identity);
  for (const std::string& name : *names) add(joinPath(path, name), prefix + name);
  open_.pop_back();
}

}  // namespace tovrek::zip
