#include "host/file_status.h"

#include <sys/stat.h>
#include <unistd.h>

#include <climits>

#include "host/file_io.h"

namespace tovrek {

ItemKind kindOf(const struct stat& info) {
  if (S_ISDIR(info.st_mode)) return ItemKind::kDirectory;
  if (S_ISLNK(info.st_mode)) return ItemKind::kLink;
  return S_ISREG(info.st_mode) ? ItemKind::kFile : ItemKind::kOther;
}

FileStatus statusFrom(const struct stat& info) {
  FileStatus status;
  status.kind = kindOf(info);
  status.mode = info.st_mode;
  status.size = static_cast<uint64_t>(info.st_size);
  status.modified = info.st_mtime;
  status.identity = {info.st_dev, info.st_ino};
  return status;
}

std::optional<FileStatus> statusOf(const std::string& path) {
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return std::nullopt;
  return statusFrom(info);
}

std::optional<FileStatus> statusNoFollow(const std::string& path) {
  struct stat info {};
  if (::lstat(path.c_str(), &info) != 0) return std::nullopt;
  return statusFrom(info);
}

std::optional<bool> isThere(const std::string& path, ErrorText* error) {
  struct stat info {};
  if (::stat(path.c_str(), &info) == 0) return true;
  if (errno == ENOENT || errno == ENOTDIR) return false;
  failWithErrno(error);
  return std::nullopt;
}

std::optional<std::string> linkTarget(const std::string& path, ErrorText* error) {
  std::string target(PATH_MAX, '\0');
  const ssize_t length = ::readlink(path.c_str(), target.data(), target.size());
  if (length < 0) {
    failWithErrno(error);
    return std::nullopt;
  }
  target.resize(static_cast<size_t>(length));
  return target;
}

}  // namespace tovrek
