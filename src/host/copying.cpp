// copyItem and moveItem: copies that never merge with or write through what stands at the target.
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>
#ifdef __linux__
#include <sys/xattr.h>
#endif

#include <vector>

#include "host/file_io.h"
#include "host/files.h"
#include "host/paths.h"
#include "host/signals.h"

namespace tovrek {
namespace {

bool renameWithoutReplacing(const std::string& from, const std::string& to) {
#ifdef __linux__
  if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
#elif defined(__APPLE__)
  return ::renamex_np(from.c_str(), to.c_str(), RENAME_EXCL) == 0;
#endif
  // File systems without that call: the small race between test and rename is accepted there.
  if (itemExistsNoFollow(to)) {
    errno = EEXIST;
    return false;
  }
  return ::rename(from.c_str(), to.c_str()) == 0;
}

bool copyFile(const std::string& from, const std::string& to, mode_t mode) {
  UniqueFd source(::open(from.c_str(), O_RDONLY | O_CLOEXEC));
  if (!source.valid()) return false;
  std::string temporary;
  UniqueFd target = createTemporaryBeside(to, &temporary);
  if (!target.valid()) return false;
  const RemovedOnSignal guard(temporary);
  const bool copied = copyContents(source.get(), target.get()) &&
                      ::fchmod(target.get(), mode & 07777) == 0 && target.close() &&
                      renameWithoutReplacing(temporary, to);
  if (!copied) {
    const int reason = errno;
    ::unlink(temporary.c_str());
    errno = reason;
  }
  return copied;
}

bool copyLink(const std::string& from, const std::string& to) {
  std::vector<char> target(4096);
  const ssize_t length = ::readlink(from.c_str(), target.data(), target.size());
  if (length < 0) return false;
  return ::symlink(std::string(target.data(), static_cast<size_t>(length)).c_str(), to.c_str()) ==
         0;
}

bool copyTree(const std::string& from, const std::string& to) {
  struct stat info {};
  if (::lstat(from.c_str(), &info) != 0) return false;
  if (S_ISLNK(info.st_mode)) return copyLink(from, to);
  if (S_ISREG(info.st_mode)) return copyFile(from, to, info.st_mode);
  if (!S_ISDIR(info.st_mode)) {
    errno = EINVAL;  // A pipe or socket would be read for ever.
    return false;
  }
  // Writable while it is filled; the source's own mode comes last.
  if (::mkdir(to.c_str(), 0700) != 0) return false;
  const auto names = listDirectory(from);
  if (!names) return false;
  for (const std::string& name : *names) {
    if (!copyTree(joinPath(from, name), joinPath(to, name))) return false;
  }
  return ::chmod(to.c_str(), info.st_mode & 07777) == 0;
}

// Whether a file moved there is as a new one would be: its group may come from the folder, and
// access lists and security labels, which are extended attributes, too.
bool isSameAsNewIn([[maybe_unused]] const std::string& folder,
                   [[maybe_unused]] const std::string& file) {
#ifdef __linux__
  struct stat place {};
  struct stat info {};
  const auto hasAttributes = [](const std::string& path) {
    return ::llistxattr(path.c_str(), nullptr, 0) > 0;
  };
  return ::stat(folder.c_str(), &place) == 0 && (place.st_mode & S_ISGID) == 0 &&
         ::lstat(file.c_str(), &info) == 0 && S_ISREG(info.st_mode) && info.st_uid == ::geteuid() &&
         info.st_gid == ::getegid() && !hasAttributes(folder) && !hasAttributes(file);
#else
  return false;  // the group always comes from the folder
#endif
}

}  // namespace

bool handOverItem(const std::string& from, const std::string& to, ErrorText* error) {
  const std::string folder = containingFolder(to);
  return (isSameAsNewIn(folder, from) && renameWithoutReplacing(from, to)) ||
         copyItem(from, to, error);
}

bool copyItem(const std::string& from, const std::string& to, ErrorText* error) {
  if (itemExistsNoFollow(to)) {
    errno = EEXIST;
    return failWithErrno(error);
  }
  return copyTree(from, to) || failWithErrno(error);
}

bool moveItem(const std::string& from, const std::string& to, ErrorText* error) {
  if (renameWithoutReplacing(from, to)) return true;
  if (errno != EXDEV) return failWithErrno(error);
  return copyItem(from, to, error) && removeItem(from, error);
}

}  // namespace tovrek
