// Replacing a large file in pieces.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "host/ErrorText.h"

namespace tovrek {

// A new version of the file at `path`, written beside it and put in its place by commit(). Without
// a commit (a failure, an early return, an interrupted run) the old file stays as it was.
class AtomicFile {
 public:
  AtomicFile();
  ~AtomicFile();
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  bool open(const std::string& path, ErrorText* error = nullptr);
  bool write(std::string_view bytes, ErrorText* error = nullptr);
  bool write(std::span<const std::byte> bytes, ErrorText* error = nullptr);
  // fsync and rename. The mode of a file that stood there is kept, else it is 0666 less the umask.
  bool commit(ErrorText* error = nullptr);
  // The same, with this mode.
  bool commit(uint32_t mode, ErrorText* error);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace tovrek
