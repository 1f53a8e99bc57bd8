// An open file that is read from.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "host/ErrorText.h"
#include "host/file_status.h"
#include "host/unique_fd.h"

namespace tovrek {

class ItemFolder;

// Opened without waiting: a pipe that nobody writes into must not hang the run.
class InputFile {
 public:
  bool open(const std::string& path, ErrorText* error = nullptr);
  // The same for a regular file, through links; anything else is refused, as an app could bring a
  // pipe or a link to a device, which would block or never end.
  bool openRegular(const std::string& path, ErrorText* error = nullptr);
  // The same for a file of the folder.
  bool openRegular(const ItemFolder& folder, const std::string& below, ErrorText* error = nullptr);
  bool isOpen() const { return fd_.valid(); }

  // As it was when the file was opened.
  const FileStatus& status() const { return status_; }

  // A word that is another one when another file stands there, or this one was changed, as far as
  // its size and the time of its last change tell. None, with the reason, when the system does not
  // tell.
  std::optional<std::string> version(ErrorText* error = nullptr) const;

  // Reads on, as much as comes at a time; 0 at the end. None, with the reason, after a failure.
  std::optional<size_t> read(std::span<char> room, ErrorText* error = nullptr);
  // Reads from a place of its own until the room is full or the file ends. read() goes on from
  // where it was.
  std::optional<size_t> readAt(uint64_t offset, std::span<std::byte> room,
                               ErrorText* error = nullptr) const;

  // For what only a descriptor can do.
  int descriptor() const { return fd_.get(); }
  // Hands the descriptor over to another owner.
  int release() { return fd_.release(); }

 private:
  bool take(UniqueFd fd, ErrorText* error);
  bool refuseUnlessRegular(ErrorText* error);

  UniqueFd fd_;
  FileStatus status_;
};

}  // namespace tovrek
