// Reaching items below the destination folder.
#pragma once

#include <string>

#include "host/unique_fd.h"

namespace tovrek::unzip {

// Goes from folder to folder below a root, one component at a time and never through a symbolic
// link, so nothing that an archive or somebody else puts there can lead out. Stays in the folder
// last entered, as neighbours in an archive mostly share it. For one thread.
class FolderCursor {
 public:
  explicit FolderCursor(int root) : root_(root) {}

  // Enters the folder `path` (relative, "" is the root), making what is missing when `create` is
  // given. The descriptor belongs to the cursor and lasts until the next call. -1 and errno when
  // it cannot be had; ELOOP or ENOTDIR when something else stands in the way.
  int enter(const std::string& path, bool create);

 private:
  int root_;
  std::string path_;
  UniqueFd folder_;
};

// The parts of "a/b/c": "a/b" and "c".
std::string folderOf(const std::string& path);
std::string nameOf(const std::string& path);

}  // namespace tovrek::unzip
