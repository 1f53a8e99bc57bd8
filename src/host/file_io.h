// Pieces that the file operations of this folder share.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "host/ErrorText.h"
#include "host/file_status.h"
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

// The same as rename(2); below guarded folders (see ItemPath.h) through no link.
bool renameReplacing(const std::string& from, const std::string& to);
// The same, but fails with EEXIST when anything stands at `to`.
bool renameWithoutReplacing(const std::string& from, const std::string& to);

ItemKind kindOf(const struct stat& info);
FileStatus statusFrom(const struct stat& info);

// Has the names in the folder that holds `path` on the disk.
bool flushFolderOf(const std::string& path);

// Sets the time of change, in seconds since 1970, and leaves that of the last use alone.
bool setModified(int fd, int64_t modified);

// Copies the contents of an open file at its current position to another, in pieces.
bool copyContents(int from, int to);

struct FilePart {
  uint64_t offset = 0;
  uint64_t size = 0;
};
// The same for a part of the first file, whose position stays. ENODATA where the file ends before.
bool copyPart(int from, FilePart part, int to);

}  // namespace tovrek
