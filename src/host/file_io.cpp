#include "host/file_io.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "host/ItemPath.h"
#include "host/files.h"
#include "host/paths.h"
#include "host/platform.h"

namespace tovrek {
namespace {

constexpr size_t kCopied = size_t{1} << 18;  // at a time, where the system does not copy by itself

}  // namespace

bool writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(fd, bytes.data(), bytes.size());
    if (written < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    bytes.remove_prefix(static_cast<size_t>(written));
  }
  return true;
}

bool writeAllAt(int fd, std::string_view bytes, uint64_t offset) {
  while (!bytes.empty()) {
    const ssize_t written = ::pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (written < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    bytes.remove_prefix(static_cast<size_t>(written));
    offset += static_cast<uint64_t>(written);
  }
  return true;
}

bool renameWithoutReplacing(const std::string& from, const std::string& to) {
  const ItemPath source(from);
  const ItemPath target(to);
  if (!source.reached() || !target.reached()) return false;
  if (const auto renamed =
          renameExclusively(source.folder(), source.name(), target.folder(), target.name())) {
    return *renamed;
  }
  // File systems without that call: the small race between test and rename is accepted there.
  if (itemExistsNoFollow(to)) {
    errno = EEXIST;
    return false;
  }
  return ::renameat(source.folder(), source.name(), target.folder(), target.name()) == 0;
}

bool renameReplacing(const std::string& from, const std::string& to) {
  const ItemPath source(from);
  const ItemPath target(to);
  return source.reached() && target.reached() &&
         ::renameat(source.folder(), source.name(), target.folder(), target.name()) == 0;
}

bool flushFolderOf(const std::string& path) {
  const UniqueFd fd(::open(containingFolder(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  // A folder may let files be made in it and yet not be opened; some file systems flush none.
  if (!fd.valid()) return errno == EACCES;
  return ::fsync(fd.get()) == 0 || errno == EINVAL || errno == EOPNOTSUPP;
}

bool setModified(int fd, int64_t modified) {
  const timespec times[2] = {{0, UTIME_OMIT}, {static_cast<time_t>(modified), 0}};
  return ::futimens(fd, times) == 0;
}

bool copyContents(int from, int to) {
  if (const auto copied = copyBySystem(from, to)) return *copied;
  std::vector<char> buffer(kCopied);
  for (;;) {
    const ssize_t got = ::read(from, buffer.data(), buffer.size());
    if (got == 0) return true;
    if (got < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (!writeAll(to, {buffer.data(), static_cast<size_t>(got)})) return false;
  }
}

bool copyPart(int from, FilePart part, int to) {
  if (const auto copied = copyPartBySystem(from, &part, to)) return *copied;
  std::vector<char> buffer(kCopied);
  while (part.size != 0) {
    const size_t wanted = std::min<uint64_t>(part.size, buffer.size());
    const ssize_t got = ::pread(from, buffer.data(), wanted, static_cast<off_t>(part.offset));
    if (got < 0 && errno == EINTR) continue;
    if (got == 0) errno = ENODATA;
    if (got <= 0 || !writeAll(to, {buffer.data(), static_cast<size_t>(got)})) return false;
    part.offset += static_cast<uint64_t>(got);
    part.size -= static_cast<uint64_t>(got);
  }
  return true;
}

}  // namespace tovrek
