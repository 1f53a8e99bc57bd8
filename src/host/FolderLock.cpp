#include "host/FolderLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

#include "host/file_io.h"

namespace tovrek {

bool FolderLock::take(const std::string& folder, ErrorText* error) {
  folder_ = UniqueFd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat info {};
  if (!folder_.valid() || ::flock(folder_.get(), LOCK_EX | LOCK_NB) != 0 ||
      ::fstat(folder_.get(), &info) != 0) {
    failWithErrno(error);
  } else if (info.st_nlink == 0) {
    fail(error, std::strerror(ENOENT));  // removed while it was opened
  } else {
    return true;
  }
  folder_.close();
  return false;
}

}  // namespace tovrek
