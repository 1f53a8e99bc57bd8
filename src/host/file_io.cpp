#include "host/file_io.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <vector>

#include "host/paths.h"

namespace tovrek {

bool writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(fd, bytes.data(), bytes.size());
    if (written < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    bytes.remove_prefix(static_cast<size_t>(written));
  }
  return true;
}

bool writeAllAt(int fd, std::string_view bytes, uint64_t offset) {
  while (!bytes.empty()) {
    const ssize_t written = ::pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (written < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    bytes.remove_prefix(static_cast<size_t>(written));
    offset += static_cast<uint64_t>(written);
  }
  return true;
}

UniqueFd createTemporaryBeside(const std::string& target, std::string* path) {
  std::string pattern = joinPath(containingFolder(target), ".tovrek-XXXXXX");
  UniqueFd fd(::mkostemp(pattern.data(), O_CLOEXEC));
  *path = pattern;
  return fd;
}

mode_t modeForNewFile(const std::string& path) {
  struct stat info {};
  if (::lstat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode)) return info.st_mode & 07777;
  const mode_t mask = ::umask(0);
  ::umask(mask);
  return static_cast<mode_t>(0666 & ~mask);
}

bool copyContents(int from, int to) {
#ifdef __linux__
  // Lets the kernel share or move the data; falls through where the file systems cannot.
  for (;;) {
    const ssize_t copied = ::copy_file_range(from, nullptr, to, nullptr, size_t{1} << 30, 0);
    if (copied == 0) return true;
    if (copied < 0 && errno != EINTR) break;
  }
  if (errno != EXDEV && errno != EINVAL && errno != ENOSYS && errno != EOPNOTSUPP &&
      errno != EBADF && errno != ETXTBSY) {
    return false;
  }
#endif
  std::vector<char> buffer(size_t{1} << 18);
  for (;;) {
    const ssize_t got = ::read(from, buffer.data(), buffer.size());
    if (got == 0) return true;
    if (got < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (!writeAll(to, {buffer.data(), static_cast<size_t>(got)})) return false;
  }
}

}  // namespace tovrek
