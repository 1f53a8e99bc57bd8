// A read-only view of a whole file.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "host/ErrorText.h"
#include "host/mapping.h"

namespace tovrek {

// Private, read-only mapping that lives as long as the object. An empty file maps to an empty
// span. The file must not be cut short by others while it is mapped.
class MappedFile {
 public:
  MappedFile() = default;
  MappedFile(MappedFile&& other) noexcept;
  MappedFile& operator=(MappedFile&& other) noexcept;
  MappedFile(const MappedFile&) = delete;
  MappedFile& operator=(const MappedFile&) = delete;
  ~MappedFile();

  bool open(const std::string& path, ErrorText* error = nullptr);
  // The same, telling which step failed.
  Mapped map(const std::string& path);
  std::span<const std::byte> bytes() const { return {data_, size_}; }

 private:
  void reset();
  const std::byte* data_ = nullptr;
  size_t size_ = 0;
};

// Brings this part of a mapping into memory in one go, which costs less than one page after the
// other and lets system calls take it without a stop. Only a hint.
void fetchPages(std::string_view mapped);

// Says that this part of a mapping is not needed for now: its memory is given back and read anew
// from the file on the next use. For one pass over a file larger than memory. Only for mappings of
// MappedFile, whose pages nobody changes.
void releasePages(std::string_view mapped);

}  // namespace tovrek
