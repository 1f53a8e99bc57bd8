#include "host/MappedFile.h"

#include <sys/mman.h>
#include <unistd.h>

#include <bit>
#include <cstdint>
#include <utility>

#include "host/file_io.h"
#include "host/platform.h"

namespace tovrek {

MappedFile::MappedFile(MappedFile&& other) noexcept
    : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)) {}

MappedFile& MappedFile::operator=(MappedFile&& other) noexcept {
  if (this != &other) {
    reset();
    data_ = std::exchange(other.data_, nullptr);
    size_ = std::exchange(other.size_, 0);
  }
  return *this;
}

MappedFile::~MappedFile() {
  reset();
}

void MappedFile::reset() {
  if (data_ != nullptr) ::munmap(const_cast<std::byte*>(data_), size_);
  data_ = nullptr;
  size_ = 0;
}

Mapped MappedFile::map(const std::string& path) {
  reset();
  Mapping mapping;
  const Mapped mapped = mapFile(path, false, &mapping);
  data_ = mapping.data;
  size_ = mapping.size;
  return mapped;
}

bool MappedFile::open(const std::string& path, ErrorText* error) {
  return map(path) == Mapped::kDone || failWithErrno(error);
}

namespace {

uintptr_t pageSize() {
  static const auto size = static_cast<uintptr_t>(::sysconf(_SC_PAGESIZE));
  return size;
}

}  // namespace

void fetchPages(std::string_view mapped) {
  if (mapped.empty()) return;
  const auto start = std::bit_cast<uintptr_t>(mapped.data());
  const uintptr_t first = start / pageSize() * pageSize();
  readPages(std::bit_cast<void*>(first), start + mapped.size() - first);
}

void releasePages(std::string_view mapped) {
  const uintptr_t page = pageSize();
  const auto start = std::bit_cast<uintptr_t>(mapped.data());
  const uintptr_t first = (start + page - 1) / page * page;
  const uintptr_t end = (start + mapped.size()) / page * page;
  // Only pages that lie inside as a whole; a refusal does no harm.
  if (first < end) ::madvise(std::bit_cast<void*>(first), end - first, MADV_DONTNEED);
}

}  // namespace tovrek
