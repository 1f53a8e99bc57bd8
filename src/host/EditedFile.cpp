#include "host/EditedFile.h"

#include <sys/mman.h>
#include <unistd.h>

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

void EditedFile::flush() const {
  if (mapping_.data != nullptr) ::msync(mapping_.data, mapping_.size, MS_SYNC);
}

bool EditedFile::writeUnmapped(uint64_t offset, std::span<const std::byte> contents) {
  const int fd = mapping_.fd.get();
  const size_t size = mapping_.size;
  if (mapping_.data == nullptr) return false;
  if (contents.size() > size || offset > size - contents.size()) return false;
  const void* start = contents.data();
  const std::string_view letters(static_cast<const char*>(start), contents.size());
  ::msync(mapping_.data, size, MS_SYNC);
  ::msync(mapping_.data, size, MS_INVALIDATE);
  std::byte* const address = std::exchange(mapping_.data, nullptr);
  ::munmap(address, size);

  const bool written = writeAllAt(fd, letters, offset) && ::fsync(fd) == 0;

  void* view = ::mmap(address, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, fd, 0);
  if (view == MAP_FAILED) return false;
  mapping_.data = static_cast<std::byte*>(view);
  return written;
}

}  // namespace tovrek
