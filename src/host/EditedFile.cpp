#include "host/EditedFile.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

#include "host/file_io.h"

namespace tovrek {

EditedFile::~EditedFile() {
  if (mapping_.data != nullptr) ::munmap(mapping_.data, mapping_.size);
}

Mapped EditedFile::open(const std::string& path) {
  const Mapped mapped = mapFile(path, true, &mapping_);
  return mapped == Mapped::kDone && mapping_.data == nullptr ? Mapped::kMapFailed : mapped;
}

bool EditedFile::flush(ErrorText* error) const {
  if (mapping_.data == nullptr || ::msync(mapping_.data, mapping_.size, MS_SYNC) == 0) return true;
  return failWithErrno(error);
}

bool EditedFile::writeUnmapped(uint64_t offset, std::span<const std::byte> contents,
                               ErrorText* error) {
  const int fd = mapping_.fd.get();
  const size_t size = mapping_.size;
  if (contents.size() > size || offset > size - contents.size()) {
    return fail(error, "the place lies beyond the file");
  }
  if (mapping_.data == nullptr) return fail(error, "the file is not mapped");
  const void* start = contents.data();
  const std::string_view letters(static_cast<const char*>(start), contents.size());
  const bool flushed = ::msync(mapping_.data, size, MS_SYNC) == 0 &&
                       ::msync(mapping_.data, size, MS_INVALIDATE) == 0;
  int fault = flushed ? 0 : errno;
  std::byte* const address = std::exchange(mapping_.data, nullptr);
  ::munmap(address, size);

  if (fault == 0 && !(writeAllAt(fd, letters, offset) && ::fsync(fd) == 0)) fault = errno;

  void* view = ::mmap(address, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, fd, 0);
  if (view == MAP_FAILED) return failWithErrno(error);
  mapping_.data = static_cast<std::byte*>(view);
  return fault == 0 || fail(error, std::strerror(fault));
}

}  // namespace tovrek
