// Reaching and making items below a folder.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "host/NewFile.h"
#include "host/unique_fd.h"

namespace tovrek {

// Goes from folder to folder below a root, one component at a time and never through a symbolic
// link, so nothing that an archive or somebody else puts there can lead out. Stays in the folder
// last entered, as neighbours in an archive mostly share it. For one thread; a copy is a cursor of
// its own below the same root. All answers are false with the reason in errno.
class FolderCursor {
 public:
  FolderCursor() = default;
  FolderCursor(const FolderCursor& other) : root_(other.root_) {}
  FolderCursor& operator=(const FolderCursor&) = delete;

  // Makes a root, unless something stands there.
  static bool makeRoot(const std::string& path);
  bool openRoot(const std::string& path);

  // Enters the folder `path` (relative, "" is the root), making what is missing when `create` is
  // given. ELOOP or ENOTDIR when something else stands in the way.
  bool enter(const std::string& path, bool create);

  // Items of the folder entered, by name.
  bool has(const std::string& name) const;
  bool makeFolder(const std::string& name) const;
  bool makeLink(const std::string& name, const std::string& target) const;
  // For reading and writing, by this user alone; fails when anything stands there.
  NewFile createFile(const std::string& name) const;
  // Not for folders.
  bool remove(const std::string& name) const;

  // Permission bits and time of change (seconds since 1970) of the folder entered.
  void finish(uint32_t permissions, int64_t modified) const;

 private:
  int here() const { return atRoot_ ? root_->get() : folder_.get(); }

  std::shared_ptr<const UniqueFd> root_;
  bool atRoot_ = true;
  std::string path_;  // of `folder_`, the one last entered below the root
  UniqueFd folder_;
};

}  // namespace tovrek
