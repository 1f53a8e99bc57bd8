// A file that is being made where none was.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string_view>

#include "host/unique_fd.h"

namespace tovrek {

// What FolderCursor::createFile() gives. All answers are false with the reason in errno.
class NewFile {
 public:
  explicit NewFile(UniqueFd fd) : fd_(std::move(fd)) {}
  bool isOpen() const { return fd_.valid(); }

  bool write(std::string_view bytes) const;
  // Makes it so long; what was not written reads as zeros, and takes no room where the file system
  // can do that.
  bool extendTo(uint64_t size) const;
  // Has `fill` write a file of `size` bytes through a mapping, so that they need no memory of
  // their own.
  bool writeMapped(uint64_t size, const std::function<void(std::span<std::byte>)>& fill) const;
  // Permission bits and time of change (seconds since 1970), once all is written. Closes.
  bool finish(uint32_t permissions, int64_t modified);

 private:
  UniqueFd fd_;
};

}  // namespace tovrek
