#include "host/StdioFile.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <vector>

#include "host/file_io.h"

namespace tovrek {

StdioFile openRegularFile(const std::string& path, ErrorText* error) {
  UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat info {};
  if (!fd.valid() || ::fstat(fd.get(), &info) != 0) {
    failWithErrno(error);
    return nullptr;
  }
  if (!S_ISREG(info.st_mode)) {
    fail(error, S_ISDIR(info.st_mode) ? "Is a directory" : "Not a regular file");
    return nullptr;
  }
  StdioFile file(::fdopen(fd.get(), "rb"));
  if (file == nullptr) {
    failWithErrno(error);
    return nullptr;
  }
  fd.release();
  return file;
}

bool readInPieces(const std::string& path, const std::function<void(std::string_view)>& take,
                  ErrorText* error) {
  const StdioFile file = openRegularFile(path, error);
  if (file == nullptr) return false;
  std::vector<char> buffer(size_t{1} << 18);
  while (const size_t got = std::fread(buffer.data(), 1, buffer.size(), file.get())) {
    take({buffer.data(), got});
  }
  return std::ferror(file.get()) == 0 || failWithErrno(error);
}

}  // namespace tovrek
