#include "host/AtomicFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "host/file_io.h"
#include "host/scratch.h"
#include "host/signals.h"

namespace tovrek {

struct AtomicFile::State {
  State(std::string finalPath, std::string temporaryPath, UniqueFd file)
      : path(std::move(finalPath)),
        temporary(std::move(temporaryPath)),
        fd(std::move(file)),
        guard(temporary),
        lasting(!isScratchFile(path)) {}
  ~State() {
    if (!committed) ::unlink(temporary.c_str());
  }

  std::string path;
  std::string temporary;
  UniqueFd fd;
  RemovedOnSignal guard;
  bool lasting;  // has to reach the disk
  bool committed = false;

  bool flush() const { return !lasting || ::fsync(fd.get()) == 0; }
};

AtomicFile::AtomicFile() = default;
AtomicFile::~AtomicFile() = default;

bool AtomicFile::open(const std::string& path, ErrorText* error) {
  state_.reset();
  std::string temporary;
  UniqueFd fd = createTemporaryBeside(path, &temporary);
  if (!fd.valid()) return failWithErrno(error);
  state_ = std::make_unique<State>(path, std::move(temporary), std::move(fd));
  return true;
}

bool AtomicFile::write(std::string_view bytes, ErrorText* error) {
  return writeAll(state_->fd.get(), bytes) || failWithErrno(error);
}

bool AtomicFile::write(std::span<const std::byte> bytes, ErrorText* error) {
  return write(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()), error);
}

bool AtomicFile::writeAt(uint64_t offset, std::string_view bytes, ErrorText* error) {
  return writeAllAt(state_->fd.get(), bytes, offset) || failWithErrno(error);
}

void AtomicFile::startFlush([[maybe_unused]] uint64_t offset, [[maybe_unused]] uint64_t size) {
#ifdef __linux__
  if (!state_->lasting) return;
  ::sync_file_range(state_->fd.get(), static_cast<off64_t>(offset), static_cast<off64_t>(size),
                    SYNC_FILE_RANGE_WRITE);
#endif
}

bool AtomicFile::flush(ErrorText* error) {
  return state_->flush() || failWithErrno(error);
}

bool AtomicFile::commit(ErrorText* error, std::optional<uint32_t> mode) {
  const mode_t bits = mode ? static_cast<mode_t>(*mode) : modeForNewFile(state_->path);
  const bool done = ::fchmod(state_->fd.get(), bits) == 0 && state_->flush() &&
                    state_->fd.close() &&
                    ::rename(state_->temporary.c_str(), state_->path.c_str()) == 0;
  if (!done) return failWithErrno(error);
  state_->committed = true;
  return true;
}

}  // namespace tovrek
