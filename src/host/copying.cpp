// copyItem and moveItem: copies that never merge with or write through what stands at the target.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "host/AtomicFile.h"
#include "host/InputFile.h"
#include "host/ItemPath.h"
#include "host/file_io.h"
#include "host/files.h"
#include "host/paths.h"
#include "host/platform.h"

namespace tovrek {
namespace {

bool copyFile(const std::string& from, const std::string& to, uint32_t mode, ErrorText* error) {
  InputFile source;
  AtomicFile target;
  return source.open(from, error) && target.open(to, error, AtomicFile::Lasting::kNo) &&
         target.write(source, error) && target.commitNew(mode & 0777, error);
}

bool copyLink(const std::string& from, const std::string& to, ErrorText* error) {
  const auto target = linkTarget(from, error);
  const ItemPath item(to);
  return target &&
         ((item.reached() && ::symlinkat(target->c_str(), item.folder(), item.name()) == 0) ||
          failWithErrno(error));
}

bool copyTree(const std::string& from, const std::string& to, ErrorText* error);

bool setMode(const std::string& folder, uint32_t mode) {
  const UniqueFd fd = ItemPath(folder).open(O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  return fd.valid() && ::fchmod(fd.get(), mode) == 0;
}

bool copyFolder(const std::string& from, const std::string& to, uint32_t mode, ErrorText* error) {
  // Writable while it is filled; the source's own mode comes last.
  if (!createPrivateDirectory(to, error)) return false;
  const auto names = listDirectory(from, error);
  return names &&
         std::ranges::all_of(*names,
                             [&](const std::string& name) {
                               return copyTree(joinPath(from, name), joinPath(to, name), error);
                             }) &&
         (setMode(to, mode & 0777) || failWithErrno(error));
}

bool copyTree(const std::string& from, const std::string& to, ErrorText* error) {
  const auto status = statusNoFollow(from);
  if (!status) return failWithErrno(error);
  switch (status->kind) {
    case ItemKind::kLink:
      return copyLink(from, to, error);
    case ItemKind::kFile:
      return copyFile(from, to, status->mode, error);
    case ItemKind::kDirectory:
      return copyFolder(from, to, status->mode, error);
    case ItemKind::kOther:
      break;
  }
  return fail(error, std::strerror(EINVAL));  // a pipe or socket would be read for ever
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
  return copyTree(from, to, error);
}

bool moveItem(const std::string& from, const std::string& to, ErrorText* error) {
  if (renameWithoutReplacing(from, to)) return true;
  if (errno != EXDEV) return failWithErrno(error);
  return copyItem(from, to, error) && removeItem(from, error);
}

}  // namespace tovrek
