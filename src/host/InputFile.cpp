#include "host/InputFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/ItemPath.h"
#include "host/file_io.h"
#include "host/platform.h"

namespace tovrek {

namespace {

constexpr int kReading = O_RDONLY | O_CLOEXEC | O_NONBLOCK;

}  // namespace

bool InputFile::take(UniqueFd fd, ErrorText* error) {
  struct stat info {};
  fd_ = std::move(fd);
  if (!fd_.valid() || ::fstat(fd_.get(), &info) != 0) {
    failWithErrno(error);
    fd_.close();
    return false;
  }
  status_ = statusFrom(info);
  return true;
}

bool InputFile::open(const std::string& path, ErrorText* error) {
  return take(openItem(path, kReading), error);
}

bool InputFile::openRegular(const std::string& path, ErrorText* error) {
  return open(path, error) && refuseUnlessRegular(error);
}

bool InputFile::openRegular(const ItemFolder& folder, const std::string& below, ErrorText* error) {
  return take(folder.openItem(below, kReading), error) && refuseUnlessRegular(error);
}

bool InputFile::refuseUnlessRegular(ErrorText* error) {
  if (status_.kind == ItemKind::kFile) return true;
  fd_.close();
  return fail(error,
              status_.kind == ItemKind::kDirectory ? "Is a directory" : "Not a regular file");
}

std::optional<std::string> InputFile::version(ErrorText* error) const {
  struct stat info {};
  if (::fstat(fd_.get(), &info) != 0) {
    failWithErrno(error);
    return std::nullopt;
  }
  return fmt::format("{:x}.{:x}.{:x}.{:x}", info.st_dev, info.st_ino, info.st_size,
                     changeTime(info));
}

std::optional<size_t> InputFile::read(std::span<char> room, ErrorText* error) {
  for (;;) {
    const ssize_t count = ::read(fd_.get(), room.data(), room.size());
    if (count >= 0) return static_cast<size_t>(count);
    if (errno == EINTR) continue;
    failWithErrno(error);
    return std::nullopt;
  }
}

std::optional<size_t> InputFile::readAt(uint64_t offset, std::span<std::byte> room,
                                        ErrorText* error) const {
  size_t filled = 0;
  while (filled < room.size()) {
    const ssize_t count = ::pread(fd_.get(), &room[filled], room.size() - filled,
                                  static_cast<off_t>(offset + filled));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) {
      failWithErrno(error);
      return std::nullopt;
    }
    if (count == 0) break;
    filled += static_cast<size_t>(count);
  }
  return filled;
}

}  // namespace tovrek
