#include "host/StdioFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/file_io.h"

namespace tovrek {

namespace {

UniqueFd openRegular(const std::string& path, ErrorText* error) {
  UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat info {};
  if (!fd.valid() || ::fstat(fd.get(), &info) != 0) {
    failWithErrno(error);
    return UniqueFd();
  }
  if (!S_ISREG(info.st_mode)) {
    fail(error, S_ISDIR(info.st_mode) ? "Is a directory" : "Not a regular file");
    return UniqueFd();
  }
  return fd;
}

}  // namespace

StdioFile openRegularFile(const std::string& path, ErrorText* error) {
  UniqueFd fd = openRegular(path, error);
  if (!fd.valid()) return nullptr;
  StdioFile file(::fdopen(fd.get(), "rb"));
  if (file == nullptr) {
    failWithErrno(error);
    return nullptr;
  }
  fd.release();
  return file;
}

bool readInPieces(const std::string& path, const std::function<std::span<char>()>& room,
                  const std::function<void(size_t)>& took, ErrorText* error) {
  const UniqueFd fd = openRegular(path, error);
  if (!fd.valid()) return false;
  for (;;) {
    const std::span<char> target = room();
    const ssize_t got = ::read(fd.get(), target.data(), target.size());
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return failWithErrno(error);
    if (got == 0) return true;
    took(static_cast<size_t>(got));
  }
}

}  // namespace tovrek
