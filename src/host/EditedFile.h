// A whole file in memory that is changed in place.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "host/ErrorText.h"
#include "host/mapping.h"

namespace tovrek {

// What is written to `bytes()` reaches the file no later than `flush()`. An empty file has nothing
// to be changed and cannot be mapped.
class EditedFile {
 public:
  EditedFile() = default;
  EditedFile(const EditedFile&) = delete;
  EditedFile& operator=(const EditedFile&) = delete;
  ~EditedFile();

  // Once for each object.
  Mapped open(const std::string& path);
  std::span<std::byte> bytes() const { return {mapping_.data, mapping_.size}; }

  // Waits until all that was written has reached the file.
  [[nodiscard]] bool flush(ErrorText* error = nullptr) const;

  // Writes to the file itself while it is not mapped: flushes and drops the mapping, writes
  // `contents` at `offset`, syncs the file and maps it again at the same address. The file must
  // not grow by it. False, with the reason, when the file was not flushed, written or mapped; after
  // the last no bytes are left. No memory is allocated in between that could take the mapping's
  // place.
  [[nodiscard]] bool writeUnmapped(uint64_t offset, std::span<const std::byte> contents,
                                   ErrorText* error = nullptr);

 private:
  Mapping mapping_;
};

}  // namespace tovrek
