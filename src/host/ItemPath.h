// Reaching items of strangers' folders.
#pragma once

#include <string>

#include "host/unique_fd.h"

namespace tovrek {

// Tells this process, and the children that it starts from now on, that the folder holds what
// strangers have made ($TOVREK_GUARDED): below it nothing is opened, made, renamed or removed
// through a link, whatever stands there or is put there meanwhile.
void guardFolder(const std::string& folder);

// Where an item is for the calls that take a folder and a name. Below a guarded folder that is the
// folder that holds it, reached without passing a link or leaving the guarded one; anywhere else
// the path as it stands.
class ItemPath {
 public:
  explicit ItemPath(const std::string& path);

  // False, with the reason in errno, when a link or nothing stands in the way. A call with such a
  // path fails as well (EBADF).
  bool reached() const { return reached_; }
  bool guarded() const { return guarded_; }
  int folder() const;
  const char* name() const { return name_.c_str(); }
  // open(2); below a guarded folder only what is no link itself.
  UniqueFd open(int flags, unsigned mode = 0) const;

 private:
  void reach(const std::string& root, const std::string& below);

  std::string name_;
  UniqueFd folder_;
  bool guarded_ = false;
  bool reached_ = true;
};

// ItemPath(path).open(flags) for what is there already, with fewer calls to the system.
UniqueFd openItem(const std::string& path, int flags);

// A folder of which many items are opened: finds the way to it once.
class ItemFolder {
 public:
  explicit ItemFolder(std::string path);
  const std::string& path() const { return path_; }
  // openItem() for what `below` leads to from the folder.
  UniqueFd openItem(const std::string& below, int flags) const;

 private:
  std::string path_;
  UniqueFd folder_;  // where it is in a guarded folder
};

}  // namespace tovrek
