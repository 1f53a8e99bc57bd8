#include "host/FolderCursor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "host/file_io.h"

namespace tovrek {

bool FolderCursor::makeRoot(const std::string& path) {
  return ::mkdir(path.c_str(), 0777) == 0 || errno == EEXIST;
}

bool FolderCursor::openRoot(const std::string& path) {
  UniqueFd root(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!root.valid()) return false;
  root_ = std::make_shared<const UniqueFd>(std::move(root));
  return true;
}

bool FolderCursor::enter(const std::string& path, bool create) {
  if (path.empty() || (folder_.valid() && path == path_)) {
    atRoot_ = path.empty();
    return true;
  }
  constexpr int kHow = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  UniqueFd here;
  for (size_t at = 0; at < path.size();) {
    const size_t end = std::min(path.find('/', at), path.size());
    const std::string component = path.substr(at, end - at);
    const int parent = here.valid() ? here.get() : root_->get();
    UniqueFd next(::openat(parent, component.c_str(), kHow));
    if (!next.valid() && errno == ENOENT && create) {
      if (::mkdirat(parent, component.c_str(), 0777) != 0 && errno != EEXIST) return false;
      next = UniqueFd(::openat(parent, component.c_str(), kHow));
    }
    if (!next.valid()) return false;
    here = std::move(next);
    at = end + 1;
  }
  folder_ = std::move(here);
  path_ = path;
  atRoot_ = false;
  return true;
}

bool FolderCursor::has(const std::string& name) const {
  struct stat info {};
  return ::fstatat(here(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0;
}

bool FolderCursor::makeFolder(const std::string& name) const {
  return ::mkdirat(here(), name.c_str(), 0777) == 0;
}

bool FolderCursor::makeLink(const std::string& name, const std::string& target) const {
  return ::symlinkat(target.c_str(), here(), name.c_str()) == 0;
}

NewFile FolderCursor::createFile(const std::string& name) const {
  constexpr int kHow = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  return NewFile(UniqueFd(::openat(here(), name.c_str(), kHow, 0600)));
}

bool FolderCursor::remove(const std::string& name) const {
  return ::unlinkat(here(), name.c_str(), 0) == 0;
}

void FolderCursor::finish(uint32_t permissions, int64_t modified) const {
  setModified(here(), modified);
  ::fchmod(here(), static_cast<mode_t>(permissions));
}

}  // namespace tovrek
