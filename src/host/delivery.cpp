#include "host/delivery.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <cstring>

#include "host/ItemPath.h"
#include "host/file_io.h"
#include "host/files.h"
#include "host/host_info.h"
#include "host/paths.h"
#include "host/scratch.h"
#include "host/signals.h"

namespace tovrek {
namespace {

bool flushFile(const std::string& path) {
  UniqueFd fd(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
  return fd.valid() && ::fsync(fd.get()) == 0 && fd.close();
}

// Takes the name `to`, with the contents and the name itself on the disk.
bool install(const std::string& beside, const std::string& to, bool replaces, ErrorText* error) {
  const bool lasting = !isScratchFile(to);
  if (lasting && !flushFile(beside)) return failWithErrno(error);
  const bool renamed = replaces ? renameReplacing(beside, to) : renameWithoutReplacing(beside, to);
  return (renamed && (!lasting || flushFolderOf(to))) || failWithErrno(error);
}

}  // namespace

bool flushTree(const std::string& folder, ErrorText* error) {
  if (isScratchFile(folder)) return true;
  const auto flush = [error](const std::string& path) {
    const UniqueFd fd = ItemPath(path).open(O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    return (fd.valid() && ::fsync(fd.get()) == 0) ||
           fail(error, path + ": " + std::strerror(errno));
  };
  bool flushed = flush(folder);
  const auto visit = [&](const WalkedItem& item) {
    const bool counts = item.kind == ItemKind::kFile || item.kind == ItemKind::kDirectory;
    if (flushed && counts) flushed = flush(joinPath(folder, item.relativePath));
    return flushed;
  };
  return flushed && walkDirectory(folder, visit, error) && flushed;
}

bool renameFileInto(const std::string& from, const std::string& to, ErrorText* error) {
  return install(from, to, isPlainFile(to), error);
}

bool deliverFile(const std::string& from, const std::string& to, Source source, ErrorText* error) {
  const bool replaces = isPlainFile(to);
  if (!replaces && itemExistsNoFollow(to)) {
    errno = EEXIST;
    return failWithErrno(error);
  }
  const std::string beside = joinPath(containingFolder(to), ".tovrek-" + uniqueString());
  const RemovedOnSignal guard(beside);
  const bool made =
      source == Source::kSpent ? handOverItem(from, beside, error) : copyItem(from, beside, error);
  if (!made) return false;
  if (install(beside, to, replaces, error)) return true;
  if (itemExistsNoFollow(beside)) removeItem(beside);
  return false;
}

}  // namespace tovrek
