#include "programs/zip/FileList.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

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

bool isMissing(int failure) {
  return failure == ENOENT || failure == ENOTDIR;
}

}  // namespace

bool FileList::collect(ErrorText* error) {
  if (const auto status = statusOf(options_.archive)) archive_ = status->identity;
  for (const std::string& operand : options_.operands) {
    // Of anything else that cannot be had, add() tells what it is about.
    if (!statusNoFollow(operand) && isMissing(errno)) {
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
    if (a.name == b.name && a.status.identity != b.status.identity) {
      return fail(error, fmt::format("cannot repeat names in zip file: {} and {}", a.path, b.path));
    }
  }
  items_.erase(
      std::unique(items_.begin(), items_.end(),
                  [](const SourceItem& a, const SourceItem& b) { return a.name == b.name; }),
      items_.end());
  return true;
}

bool FileList::findStandIns(const archive::StandIns& standIns, ErrorText* error) {
  return std::ranges::all_of(items_, [&](SourceItem& item) {
    ErrorText reason;
    const bool isKnown = item.status.kind != ItemKind::kFile ||
                         standIns.find(item.path, item.status.size, &item.standsFor, &reason);
    return isKnown || fail(error, fmt::format("{}: {}", item.path, reason.text()));
  });
}

void FileList::add(const std::string& path, const std::string& name) {
  auto status = statusNoFollow(path);
  if (status && status->kind == ItemKind::kLink && !options_.storeLinks) {
    status = statusOf(path);
    if (!status && (isMissing(errno) || errno == ELOOP)) {
      warnings_.push_back("name not matched: " + path);
      return;
    }
  }
  if (!status) return leaveOut(path, std::strerror(errno));
  if (status->kind == ItemKind::kDirectory) {
    addFolder({name, path, *status});
    return;
  }
  if (status->kind == ItemKind::kOther) {
    warnings_.push_back("ignoring special file: " + path);
    return;
  }
  SourceItem item{options_.junkPaths ? lastPathComponent(name) : name, path, *status};
  if (status->identity != archive_ && options_.admits(item.name)) items_.push_back(std::move(item));
}

void FileList::leaveOut(const std::string& path, const std::string& reason) {
  unreadable_.push_back(fmt::format("could not open for reading: {}: {}", path, reason));
  incomplete_ = true;
}

void FileList::addFolder(SourceItem item) {
  const ItemIdentity identity = item.status.identity;
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
  ErrorText reason;
  const auto names = listDirectory(path, &reason);
  if (!names) return leaveOut(path, reason.text());
  open_.push_back(identity);
  for (const std::string& name : *names) add(joinPath(path, name), prefix + name);
  open_.pop_back();
}

}  // namespace tovrek::zip
