// Replacing a large file in pieces.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "host/ErrorText.h"
#include "host/InputFile.h"

namespace tovrek {

// A new version of the file at `path`, written beside it, readable by this user alone meanwhile,
// and put in its place by commit(). Without a commit (a failure, an early return, an interrupted
// run) the old file stays as it was. What lies in a scratch folder (see scratch.h) is not waited
// for until it is on the disk.
class AtomicFile {
 public:
  // Whether commit() waits until the contents have reached the disk. A file that can be made again
  // need not be waited for.
  enum class Lasting { kYes, kNo };

  AtomicFile();
  ~AtomicFile();
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  bool open(const std::string& path, ErrorText* error = nullptr, Lasting lasting = Lasting::kYes);
  bool write(std::string_view bytes, ErrorText* error = nullptr);
  bool write(std::span<const std::byte> bytes, ErrorText* error = nullptr);
  // One behind the other, in one go.
  bool write(std::string_view first, std::string_view second, ErrorText* error = nullptr);
  // All that follows in an open file.
  bool write(InputFile& from, ErrorText* error = nullptr);
  // A part of an open file, which must have it.
  bool write(const InputFile& from, uint64_t offset, uint64_t size, ErrorText* error = nullptr);
  // Writes at a place of its own; what is never written in between reads as zeros. Several threads
  // may do so at once.
  bool writeAt(uint64_t offset, std::string_view bytes, ErrorText* error = nullptr);
  // Drops all behind the first `size` bytes; writing goes on there.
  bool cutTo(uint64_t size, ErrorText* error = nullptr);
  // Has the system send what was written there to the disk already now, so that commit() waits
  // less. Only a hint.
  void startFlush(uint64_t offset, uint64_t size);
  // Has everything on the disk; commit() then only renames.
  bool flush(ErrorText* error = nullptr);
  // fsync and rename. The file gets the permission bits `mode`; without them it keeps those of a
  // file of this user that stood there (read, write and run; never set-id), else it gets 0666 less
  // the umask.
  bool commit(ErrorText* error = nullptr, std::optional<uint32_t> mode = std::nullopt);
  // The same where nothing may stand yet.
  bool commitNew(uint32_t mode, ErrorText* error = nullptr);

 private:
  using Rename = bool (*)(const std::string& from, const std::string& to);
  bool finish(uint32_t mode, Rename rename, ErrorText* error);

  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace tovrek
