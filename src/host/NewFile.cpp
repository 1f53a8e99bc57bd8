#include "host/NewFile.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/file_io.h"
#include "host/platform.h"

namespace tovrek {

bool NewFile::write(std::string_view bytes) const {
  return writeAll(fd_.get(), bytes);
}

bool NewFile::extendTo(uint64_t size) const {
  return ::ftruncate(fd_.get(), static_cast<off_t>(size)) == 0;
}

bool NewFile::writeMapped(uint64_t size,
                          const std::function<void(std::span<std::byte>)>& fill) const {
  // Reserved first: running out of space while writing to a mapping would be a signal.
  if (!reserveSpace(fd_.get(), size)) return false;
  void* address = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd_.get(), 0);
  if (address == MAP_FAILED) return false;
  fill({static_cast<std::byte*>(address), size});
  ::munmap(address, size);
  return true;
}

bool NewFile::finish(uint32_t permissions, int64_t modified) {
  return ::fchmod(fd_.get(), static_cast<mode_t>(permissions)) == 0 &&
         setModified(fd_.get(), modified) && fd_.close();
}

}  // namespace tovrek
