#include "host/files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <memory>

#include "host/AtomicFile.h"
#include "host/file_io.h"
#include "host/parallel.h"
#include "host/paths.h"

namespace tovrek {
namespace {

bool statOf(const std::string& path, struct stat* info) {
  return ::stat(path.c_str(), info) == 0;
}
bool linkStatOf(const std::string& path, struct stat* info) {
  return ::lstat(path.c_str(), info) == 0;
}

struct FolderEntry {
  std::string name;
  ItemKind kind;
};

// Most file systems tell the kind with the name; the others must be asked for each item.
ItemKind kindOfEntry(const std::string& folder, const dirent& entry) {
  switch (entry.d_type) {
    case DT_DIR:
      return ItemKind::kDirectory;
    case DT_LNK:
      return ItemKind::kLink;
    case DT_REG:
      return ItemKind::kFile;
    case DT_UNKNOWN:
      break;
    default:
      return ItemKind::kOther;
  }
  struct stat info {};
  return linkStatOf(joinPath(folder, entry.d_name), &info) ? kindOf(info) : ItemKind::kOther;
}

// Calls `take` for each entry, in the file system's order. False with errno when the folder cannot
// be opened.
template <class Take>
bool forEachEntry(const std::string& path, const Take& take) {
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir(path.c_str()), &::closedir);
  if (!folder) return false;
  while (const dirent* entry = ::readdir(folder.get())) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") take(*entry);
  }
  return true;
}

// The items of a tree, to be removed: first all files, on all processors, as giving the memory or
// the blocks of many files back takes its time; then the folders, inner ones first.
class Removal {
 public:
  bool run(const std::string& path) {
    collect(path);
    constexpr size_t kFilesPerPart = 32;
    forEachPart(files_.size(), kFilesPerPart, [this](size_t begin, size_t end) {
      for (size_t i = begin; i < end; ++i) {
        if (::unlink(files_[i].c_str()) != 0) note(errno);
      }
    });
    for (size_t i = folders_.size(); i-- > 0;) {
      if (::rmdir(folders_[i].c_str()) != 0) note(errno);
    }
    errno = firstFailure_;
    return firstFailure_ == 0;
  }

 private:
  void collect(const std::string& path) {
    struct stat info {};
    if (!linkStatOf(path, &info)) return note(errno);
    if (!S_ISDIR(info.st_mode)) {
      files_.push_back(path);
      return;
    }
    // Archives may hold folders that even their owner may not write; those are to go as well.
    if ((info.st_mode & S_IRWXU) != S_IRWXU) ::chmod(path.c_str(), info.st_mode | S_IRWXU);
    folders_.push_back(path);
    std::vector<std::string> inner;
    const bool opened = forEachEntry(path, [&](const dirent& entry) {
      auto& list = kindOfEntry(path, entry) == ItemKind::kDirectory ? inner : files_;
      list.push_back(joinPath(path, entry.d_name));
    });
    if (!opened) note(errno);
    for (const std::string& folder : inner) collect(folder);
  }

  void note(int failure) {
    int none = 0;
    firstFailure_.compare_exchange_strong(none, failure);
  }

  std::vector<std::string> files_;
  std::vector<std::string> folders_;
  std::atomic<int> firstFailure_{0};
};

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
  const std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(path.c_str(), nullptr),
                                                             &std::free);
  if (!resolved) return std::nullopt;
  return std::string(resolved.get());
}

bool readFile(const std::string& path, std::string* contents, ErrorText* error) {
  const UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat info {};
  if (!fd.valid() || ::fstat(fd.get(), &info) != 0) return failWithErrno(error);
  if (S_ISDIR(info.st_mode)) {
    errno = EISDIR;
    return failWithErrno(error);
  }
  contents->clear();
  contents->resize(static_cast<size_t>(info.st_size));
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
  const UniqueFd fd(::open(path.c_str(), O_WRONLY | O_CLOEXEC));
  return (fd.valid() && writeAll(fd.get(), contents)) || failWithErrno(error);
}

bool appendToFile(const std::string& path, std::string_view text) {
  UniqueFd fd(::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
  return fd.valid() && writeAll(fd.get(), text) && fd.close();
}

void touchItem(const std::string& path) {
  ::utimensat(AT_FDCWD, path.c_str(), nullptr, AT_SYMLINK_NOFOLLOW);
}

bool createDirectories(const std::string& path, ErrorText* error) {
  if (isDirectory(path)) return true;
  const std::string parent = deletingLastPathComponent(path);
  if (!parent.empty() && !isDirectory(parent) && !createDirectories(parent, error)) return false;
  if (::mkdir(path.c_str(), 0777) == 0 || (errno == EEXIST && isDirectory(path))) return true;
  return failWithErrno(error);
}

bool createPrivateDirectory(const std::string& path, ErrorText* error) {
  return ::mkdir(path.c_str(), 0700) == 0 || failWithErrno(error);
}

bool removeItem(const std::string& path, ErrorText* error) {
  return Removal().run(path) || failWithErrno(error);
}

std::optional<std::vector<std::string>> listDirectory(const std::string& path, ErrorText* error) {
  std::vector<std::string> names;
  if (!forEachEntry(path, [&](const dirent& entry) { names.emplace_back(entry.d_name); })) {
    failWithErrno(error);
    return std::nullopt;
  }
  std::sort(names.begin(), names.end());
  return names;
}

namespace {

bool walkFolder(const std::string& root, const std::string& relative,
                const std::function<bool(const WalkedItem&)>& visit) {
  const std::string path = joinPath(root, relative);
  std::vector<FolderEntry> entries;
  const bool opened = forEachEntry(path, [&](const dirent& entry) {
    entries.push_back({entry.d_name, kindOfEntry(path, entry)});
  });
  if (!opened) return false;
  std::sort(entries.begin(), entries.end(),
            [](const FolderEntry& a, const FolderEntry& b) { return a.name < b.name; });
  for (const FolderEntry& entry : entries) {
    const WalkedItem item{joinPath(relative, entry.name), entry.kind};
    const bool descend = visit(item);
    if (descend && item.kind == ItemKind::kDirectory) walkFolder(root, item.relativePath, visit);
  }
  return true;
}

}  // namespace

bool walkDirectory(const std::string& root, const std::function<bool(const WalkedItem&)>& visit) {
  return walkFolder(root, "", visit);
}

}  // namespace tovrek
