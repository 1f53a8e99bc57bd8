#include "host/log_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/file_io.h"

namespace tovrek {

bool appendToLog(const std::string& path, std::string_view text, ErrorText* error) {
  constexpr int kFlags = O_WRONLY | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  UniqueFd fd(::open(path.c_str(), kFlags));
  if (!fd.valid() && errno == ENOENT) {
    fd = UniqueFd(::open(path.c_str(), kFlags | O_CREAT | O_EXCL, 0666));
    // Another run has made it meanwhile.
    if (!fd.valid() && errno == EEXIST) fd = UniqueFd(::open(path.c_str(), kFlags));
  }
  struct stat info {};
  if (!fd.valid() || ::fstat(fd.get(), &info) != 0) return failWithErrno(error);
  if (!S_ISREG(info.st_mode)) return fail(error, "Not a regular file");
  if (info.st_uid != ::geteuid()) return fail(error, "The file belongs to another user");
  return (writeAll(fd.get(), text) && fd.close()) || failWithErrno(error);
}

}  // namespace tovrek
