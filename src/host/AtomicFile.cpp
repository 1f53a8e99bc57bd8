#include "host/AtomicFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "host/ItemPath.h"
#include "host/file_io.h"
#include "host/host_info.h"
#include "host/paths.h"
#include "host/platform.h"
#include "host/scratch.h"
#include "host/signals.h"

namespace tovrek {
namespace {

// A name beside `target` that only this process knows.
std::string nameBeside(const std::string& target) {
  return joinPath(containingFolder(target), ".tovrek-" + uniqueString());
}

// That of the old file when one of this user's stands there. Never its set-id bits, and nothing of
// somebody else's: the new contents would run with rights that were given to the old ones, or be
// open to whom another user chose. None, with errno, when that cannot be found out: an executable
// would lose its mode.
std::optional<uint32_t> modeForNewFile(const std::string& path) {
  struct stat old {};
  const bool stands = ::lstat(path.c_str(), &old) == 0;
  if (!stands && errno != ENOENT) return std::nullopt;
  const bool isOwn = stands && S_ISREG(old.st_mode) && old.st_uid == ::geteuid();
  return isOwn ? old.st_mode & 0777 : 0666 & ~creationMask();
}

}  // namespace

struct AtomicFile::State {
  State(std::string finalPath, Lasting wanted)
      : path(std::move(finalPath)),
        temporary(nameBeside(path)),
        guard(temporary),
        lasting(wanted == Lasting::kYes && !isScratchFile(path)),
        fd(ItemPath(temporary).open(O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600)) {}
  ~State() {
    const ItemPath item(temporary);
    if (made && !committed && item.reached()) ::unlinkat(item.folder(), item.name(), 0);
  }

  std::string path;
  std::string temporary;
  RemovedOnSignal guard;
  bool lasting;  // has to reach the disk
  UniqueFd fd;   // behind all that may fail: with it the file is there
  const bool made = fd.valid();
  bool committed = false;

  bool flush() const { return !lasting || ::fsync(fd.get()) == 0; }
};

AtomicFile::AtomicFile() = default;
AtomicFile::~AtomicFile() = default;

bool AtomicFile::open(const std::string& path, ErrorText* error, Lasting lasting) {
  state_.reset();
  state_ = std::make_unique<State>(path, lasting);
  if (state_->fd.valid()) return true;
  failWithErrno(error);
  state_.reset();
  return false;
}

bool AtomicFile::write(std::string_view bytes, ErrorText* error) {
  return writeAll(state_->fd.get(), bytes) || failWithErrno(error);
}

bool AtomicFile::write(std::span<const std::byte> bytes, ErrorText* error) {
  return write(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()), error);
}

bool AtomicFile::write(std::string_view first, std::string_view second, ErrorText* error) {
  const iovec parts[2] = {{const_cast<char*>(first.data()), first.size()},
                          {const_cast<char*>(second.data()), second.size()}};
  const ssize_t count = ::writev(state_->fd.get(), parts, 2);
  if (count < 0 && errno != EINTR) return failWithErrno(error);
  const size_t written = count < 0 ? 0 : static_cast<size_t>(count);
  if (written >= first.size()) return write(second.substr(written - first.size()), error);
  return write(first.substr(written), error) && write(second, error);
}

bool AtomicFile::write(InputFile& from, ErrorText* error) {
  return copyContents(from.descriptor(), state_->fd.get()) || failWithErrno(error);
}

bool AtomicFile::write(const InputFile& from, uint64_t offset, uint64_t size, ErrorText* error) {
  return copyPart(from.descriptor(), {offset, size}, state_->fd.get()) || failWithErrno(error);
}

bool AtomicFile::writeAt(uint64_t offset, std::string_view bytes, ErrorText* error) {
  return writeAllAt(state_->fd.get(), bytes, offset) || failWithErrno(error);
}

bool AtomicFile::cutTo(uint64_t size, ErrorText* error) {
  const auto end = static_cast<off_t>(size);
  const int fd = state_->fd.get();
  return (::ftruncate(fd, end) == 0 && ::lseek(fd, end, SEEK_SET) == end) || failWithErrno(error);
}

void AtomicFile::startFlush(uint64_t offset, uint64_t size) {
  if (state_->lasting) startWriting(state_->fd.get(), offset, size);
}

bool AtomicFile::flush(ErrorText* error) {
  return state_->flush() || failWithErrno(error);
}

bool AtomicFile::commit(ErrorText* error, std::optional<uint32_t> mode) {
  // Asking for the mask changes it for a moment, which other threads would see: only where needed.
  if (!mode) mode = modeForNewFile(state_->path);
  return mode ? finish(*mode, renameReplacing, error) : failWithErrno(error);
}

bool AtomicFile::commitNew(uint32_t mode, ErrorText* error) {
  return finish(mode, renameWithoutReplacing, error);
}

bool AtomicFile::finish(uint32_t mode, Rename rename, ErrorText* error) {
  state_->committed = ::fchmod(state_->fd.get(), static_cast<mode_t>(mode)) == 0 &&
                      state_->flush() && state_->fd.close() &&
                      rename(state_->temporary, state_->path);
  const bool lasts = state_->committed && (!state_->lasting || flushFolderOf(state_->path));
  return lasts || failWithErrno(error);
}

}  // namespace tovrek
