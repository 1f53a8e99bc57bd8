// Pieces that the file operations of this folder share.
#pragma once

#include <sys/types.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "host/ErrorText.h"
#include "host/unique_fd.h"

namespace tovrek {

// Puts the description of the current errno into the slot; answers false.
inline bool failWithErrno(ErrorText* error) {
  return fail(error, std::strerror(errno));
}

// Writes all bytes, through short writes and interruptions.
bool writeAll(int fd, std::string_view bytes);
// The same at a place of its own, from where the file's position stays.
bool writeAllAt(int fd, std::string_view bytes, uint64_t offset);

// A new file beside `target` that only this process knows, for writing; its name goes to `path`.
UniqueFd createTemporaryBeside(const std::string& target, std::string* path);

// The mode that a new file gets: the old file's when one stands there, else 0666 less the umask.
mode_t modeForNewFile(const std::string& path);

// Copies the contents of an open file at its current position to another, in pieces.
bool copyContents(int from, int to);

}  // namespace tovrek
