#include "host/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "host/AtomicFile.h"
#include "host/ItemPath.h"
#include "host/Streams.h"
#include "host/file_io.h"
#include "host/paths.h"
#include "host/platform.h"

namespace tovrek {
namespace {

// Whether the last call failed because the system could not find out, which is no answer.
bool isUnanswered() {
  return errno == EIO || errno == ENOMEM || errno == EINTR || errno == ESTALE;
}

// Asks a question whose callers take failure for "no". What was in the way for a moment is got over
// by asking again; what stays there is told, since a file that cannot be looked at is taken for
// missing.
template <typename Question>
bool ask(const std::string& path, const Question& question) {
  if (question()) return true;
  if (!isUnanswered()) return false;
  if (question()) return true;
  if (isUnanswered()) printError("WARNING: " + path + ": " + std::strerror(errno) + "\n");
  return false;
}

bool statOf(const std::string& path, struct stat* info) {
  return ask(path, [&] { return ::stat(path.c_str(), info) == 0; });
}
bool linkStatOf(const std::string& path, struct stat* info) {
  return ask(path, [&] { return ::lstat(path.c_str(), info) == 0; });
}

}  // namespace

bool fileExists(const std::string& path) {
  struct stat info {};
  return statOf(path, &info);
}

bool isDirectory(const std::string& path) {
  struct stat info {};
  return statOf(path, &info) && S_ISDIR(info.st_mode);
}

bool isPlainFile(const std::string& path) {
  struct stat info {};
  return statOf(path, &info) && !S_ISDIR(info.st_mode);
}

bool isSymbolicLink(const std::string& path) {
  struct stat info {};
  return linkStatOf(path, &info) && S_ISLNK(info.st_mode);
}

bool itemExistsNoFollow(const std::string& path) {
  struct stat info {};
  return linkStatOf(path, &info);
}

bool isWritable(const std::string& path) {
  return ::access(path.c_str(), W_OK) == 0;
}

bool isExecutable(const std::string& path) {
  return ::access(path.c_str(), X_OK) == 0;
}

bool isPrivateDirectory(const std::string& path) {
  struct stat info {};
  return linkStatOf(path, &info) && S_ISDIR(info.st_mode) && info.st_uid == ::geteuid() &&
         (info.st_mode & 0077) == 0;
}

std::optional<int64_t> modificationTime(const std::string& path) {
  struct stat info {};
  if (!statOf(path, &info)) return std::nullopt;
  return info.st_mtime;
}

uint32_t creationMask() {
  const mode_t mask = ::umask(0);
  ::umask(mask);
  return mask;
}

std::optional<uint64_t> fileSize(const std::string& path) {
  struct stat info {};
  if (!statOf(path, &info)) return std::nullopt;
  return static_cast<uint64_t>(info.st_size);
}

std::optional<uint32_t> fileMode(const std::string& path) {
  struct stat info {};
  if (!statOf(path, &info)) return std::nullopt;
  return static_cast<uint32_t>(info.st_mode & 07777);
}

std::optional<std::string> realPath(const std::string& path) {
  if (auto found = resolvedAtOnce(path)) return found;
  std::unique_ptr<char, decltype(&std::free)> resolved(nullptr, &std::free);
  ask(path, [&] {
    resolved.reset(::realpath(path.c_str(), nullptr));
    return resolved != nullptr;
  });
  if (!resolved) return std::nullopt;
  return std::string(resolved.get());
}

bool readFile(const std::string& path, std::string* contents, ErrorText* error) {
  const ItemPath item(path);
  // What strangers have made is not waited for.
  const UniqueFd fd = item.open(O_RDONLY | O_CLOEXEC | (item.guarded() ? O_NONBLOCK : 0));
  struct stat info {};
  if (!fd.valid() || ::fstat(fd.get(), &info) != 0) return failWithErrno(error);
  if (S_ISDIR(info.st_mode)) {
    errno = EISDIR;
    return failWithErrno(error);
  }
  if (item.guarded() && !S_ISREG(info.st_mode)) return fail(error, "Not a regular file");
  contents->clear();
  // With a byte more, so that the end is seen without making room for anything behind it.
  contents->resize(static_cast<size_t>(info.st_size) + 1);
  size_t filled = 0;
  for (;;) {
    // A file may grow or, like those of /proc, have no size: read on until its end.
    if (filled == contents->size()) contents->resize(filled + 4096);
    const ssize_t got = ::read(fd.get(), contents->data() + filled, contents->size() - filled);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return failWithErrno(error);
    if (got == 0) break;
    filled += static_cast<size_t>(got);
  }
  contents->resize(filled);
  return true;
}

bool writeFileAtomically(const std::string& path, std::string_view contents, ErrorText* error) {
  AtomicFile file;
  return file.open(path, error) && file.write(contents, error) && file.commit(error);
}

bool writeFileAtomically(const std::string& path, std::span<const std::string_view> parts,
                         uint32_t mode, ErrorText* error) {
  AtomicFile file;
  return file.open(path, error) &&
         std::ranges::all_of(parts,
                             [&](std::string_view part) { return file.write(part, error); }) &&
         file.commit(error, mode);
}

bool writeFileOrDevice(const std::string& path, std::string_view contents, ErrorText* error) {
  struct stat info {};
  if (!statOf(path, &info) || S_ISREG(info.st_mode)) {
    return writeFileAtomically(path, contents, error);
  }
  const UniqueFd fd = ItemPath(path).open(O_WRONLY | O_CLOEXEC);
  return (fd.valid() && writeAll(fd.get(), contents)) || failWithErrno(error);
}

bool appendToFile(const std::string& path, std::string_view text) {
  UniqueFd fd = ItemPath(path).open(O_WRONLY | O_APPEND | O_CLOEXEC);
  return fd.valid() && writeAll(fd.get(), text) && fd.close();
}

void touchItem(const std::string& path) {
  ::utimensat(AT_FDCWD, path.c_str(), nullptr, AT_SYMLINK_NOFOLLOW);
}

bool createDirectories(const std::string& path, ErrorText* error) {
  if (isDirectory(path)) return true;
  const std::string parent = deletingLastPathComponent(path);
  if (!parent.empty() && !isDirectory(parent) && !createDirectories(parent, error)) return false;
  const ItemPath item(path);
  const bool made = item.reached() && ::mkdirat(item.folder(), item.name(), 0777) == 0;
  if (made || (errno == EEXIST && isDirectory(path))) return true;
  return failWithErrno(error);
}

bool createPrivateDirectory(const std::string& path, ErrorText* error) {
  const ItemPath item(path);
  return (item.reached() && ::mkdirat(item.folder(), item.name(), 0700) == 0) ||
         failWithErrno(error);
}

}  // namespace tovrek
