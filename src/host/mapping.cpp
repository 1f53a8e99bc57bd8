#include "host/mapping.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>

#include "host/ItemPath.h"

namespace tovrek {

Mapped mapFile(const std::string& path, bool edit, Mapping* mapping) {
  // O_NONBLOCK: a pipe without a writer must not hang the run; regular files ignore it.
  mapping->fd = openItem(path, (edit ? O_RDWR : O_RDONLY) | O_CLOEXEC | O_NONBLOCK);
  if (!mapping->fd.valid()) return Mapped::kOpenFailed;
  struct stat info {};
  if (::fstat(mapping->fd.get(), &info) != 0) return Mapped::kStatFailed;
  if (!S_ISREG(info.st_mode)) {
    errno = S_ISDIR(info.st_mode) ? EISDIR : EINVAL;
    return Mapped::kMapFailed;
  }
  if (info.st_size == 0) return Mapped::kDone;
  const auto size = static_cast<size_t>(info.st_size);
  void* view = ::mmap(nullptr, size, edit ? PROT_READ | PROT_WRITE : PROT_READ,
                      edit ? MAP_SHARED : MAP_PRIVATE, mapping->fd.get(), 0);
  if (view == MAP_FAILED) return Mapped::kMapFailed;
  mapping->data = static_cast<std::byte*>(view);
  mapping->size = size;
  return Mapped::kDone;
}

}  // namespace tovrek
