// A whole file in memory, for readers that must tell how opening failed and for editing in place.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "host/unique_fd.h"

namespace tovrek {

// Lives as long as the object. Opened for editing, what is written to `bytes()` reaches the file
// no later than `flush()`. An empty file cannot be mapped and fails.
class FileMapping {
 public:
  enum class Mode { kRead, kEdit };
  enum class Opened { kDone, kOpenFailed, kStatFailed, kMapFailed };

  FileMapping() = default;
  FileMapping(const FileMapping&) = delete;
  FileMapping& operator=(const FileMapping&) = delete;
  ~FileMapping();

  // kRead maps privately and keeps no descriptor; nothing may be written to `bytes()` then.
  Opened open(const std::string& path, Mode mode);
  std::span<std::byte> bytes() const { return {data_, size_}; }

  // Waits until all that was written has reached the file.
  void flush() const;

  // Writes to the file itself while it is not mapped: flushes and drops the mapping, writes
  // `contents` at `offset`, syncs the file and maps it again at the same address. The file must
  // not grow by it. False when the write or the new mapping failed; after the latter no bytes
  // are left. No memory is allocated in between that could take the mapping's place.
  [[nodiscard]] bool writeUnmapped(uint64_t offset, std::span<const std::byte> contents);

 private:
  UniqueFd fd_;  // valid while editing
  std::byte* data_ = nullptr;
  size_t size_ = 0;
};

}  // namespace tovrek
