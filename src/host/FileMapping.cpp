#include "host/FileMapping.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string_view>
#include <utility>

#include "host/file_io.h"

namespace tovrek {

FileMapping::~FileMapping() {
  if (data_ != nullptr) ::munmap(data_, size_);
}

FileMapping::Opened FileMapping::open(const std::string& path, Mode mode) {
  const bool edit = mode == Mode::kEdit;
  // O_NONBLOCK: a pipe without a writer must not hang the run; regular files ignore it.
  UniqueFd fd(::open(path.c_str(), (edit ? O_RDWR : O_RDONLY) | O_CLOEXEC | O_NONBLOCK));
  if (!fd.valid()) return Opened::kOpenFailed;
  struct stat info {};
  if (::fstat(fd.get(), &info) != 0) return Opened::kStatFailed;
  if (!S_ISREG(info.st_mode) || info.st_size == 0) return Opened::kMapFailed;
  const auto size = static_cast<size_t>(info.st_size);
  void* view = ::mmap(nullptr, size, edit ? PROT_READ | PROT_WRITE : PROT_READ,
                      edit ? MAP_SHARED : MAP_PRIVATE, fd.get(), 0);
  if (view == MAP_FAILED) return Opened::kMapFailed;
  data_ = static_cast<std::byte*>(view);
  size_ = size;
  if (edit) fd_ = std::move(fd);
  return Opened::kDone;
}

void FileMapping::flush() const {
  if (data_ != nullptr) ::msync(data_, size_, MS_SYNC);
}

bool FileMapping::writeUnmapped(uint64_t offset, std::span<const std::byte> contents) {
  if (!fd_.valid() || data_ == nullptr) return false;
  if (contents.size() > size_ || offset > size_ - contents.size()) return false;
  const void* start = contents.data();
  const auto* letters = static_cast<const char*>(start);
  ::msync(data_, size_, MS_SYNC);
  ::msync(data_, size_, MS_INVALIDATE);
  std::byte* const address = std::exchange(data_, nullptr);
  ::munmap(address, size_);

  const bool written = ::lseek(fd_.get(), static_cast<off_t>(offset), SEEK_SET) >= 0 &&
                       writeAll(fd_.get(), {letters, contents.size()}) && ::fsync(fd_.get()) == 0;
  ::lseek(fd_.get(), 0, SEEK_SET);

  void* view = ::mmap(address, size_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, fd_.get(), 0);
  if (view == MAP_FAILED) return false;
  data_ = static_cast<std::byte*>(view);
  return written;
}

}  // namespace tovrek
