#include "programs/unzip/FolderCursor.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

namespace tovrek::unzip {

std::string folderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

std::string nameOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

int FolderCursor::enter(const std::string& path, bool create) {
  if (path.empty()) return root_;
  if (folder_.valid() && path == path_) return folder_.get();
  constexpr int kHow = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  UniqueFd here;
  for (size_t at = 0; at < path.size();) {
    const size_t end = std::min(path.find('/', at), path.size());
    const std::string component = path.substr(at, end - at);
    const int parent = here.valid() ? here.get() : root_;
    UniqueFd next(::openat(parent, component.c_str(), kHow));
    if (!next.valid() && errno == ENOENT && create) {
      if (::mkdirat(parent, component.c_str(), 0777) != 0 && errno != EEXIST) return -1;
      next = UniqueFd(::openat(parent, component.c_str(), kHow));
    }
    if (!next.valid()) return -1;
    here = std::move(next);
    at = end + 1;
  }
  folder_ = std::move(here);
  path_ = path;
  return folder_.get();
}

}  // namespace tovrek::unzip
