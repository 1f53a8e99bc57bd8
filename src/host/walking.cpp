// Listings, walks and removals: what goes through folders, by descriptor, so that neither the
// length of a path nor a link that is put there meanwhile leads astray.
#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <memory>

#include "host/ItemPath.h"
#include "host/file_io.h"
#include "host/files.h"
#include "host/parallel.h"
#include "host/paths.h"

namespace tovrek {
namespace {

constexpr int kFolder = O_RDONLY | O_DIRECTORY | O_CLOEXEC;
constexpr int kInnerFolder = kFolder | O_NOFOLLOW;

// Most file systems tell the kind with the name; the others must be asked for each item. None, with
// errno, when that fails.
std::optional<ItemKind> kindOfEntry(int folder, const dirent& entry) {
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
  if (::fstatat(folder, entry.d_name, &info, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
  return kindOf(info);
}

// Calls `take` for each entry, in the file system's order, as long as that answers true. False with
// errno when the folder cannot be read to its end. `folder` stays open, at its end.
template <class Take>
bool forEachEntry(int folder, const Take& take) {
  // The stream closes its descriptor, so it gets one of its own.
  UniqueFd copy(::fcntl(folder, F_DUPFD_CLOEXEC, 0));
  if (!copy.valid()) return false;
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(::fdopendir(copy.get()), &::closedir);
  if (!stream) return false;
  copy.release();
  for (;;) {
    errno = 0;
    const dirent* entry = ::readdir(stream.get());
    if (entry == nullptr) return errno == 0;
    const std::string_view name = entry->d_name;
    if (name != "." && name != ".." && !take(*entry)) return false;
  }
}

class Walk {
 public:
  Walk(std::string root, const std::function<bool(const WalkedItem&)>& visit, ErrorText* error)
      : root_(std::move(root)), visit_(visit), error_(error) {}

  bool run(bool mayBeMissing) {
    const UniqueFd root = openItem(root_, kFolder);
    const bool missing = !root.valid() && (errno == ENOENT || errno == ENOTDIR);
    return (missing && mayBeMissing) || walk(root, "");
  }

 private:
  struct FolderEntry {
    std::string name;
    ItemKind kind;
  };

  bool walk(const UniqueFd& folder, const std::string& relative) {
    std::vector<FolderEntry> entries;
    if (!folder.valid() || !list(folder.get(), &entries)) return failed(relative);
    for (const FolderEntry& entry : entries) {
      const WalkedItem item{joinPath(relative, entry.name), entry.kind};
      const bool descend = visit_(item) && item.kind == ItemKind::kDirectory;
      if (descend && !walk(UniqueFd(::openat(folder.get(), entry.name.c_str(), kInnerFolder)),
                           item.relativePath)) {
        return false;
      }
    }
    return true;
  }

  static bool list(int folder, std::vector<FolderEntry>* entries) {
    const bool whole = forEachEntry(folder, [&](const dirent& entry) {
      const auto kind = kindOfEntry(folder, entry);
      if (kind) entries->push_back({entry.d_name, *kind});
      return kind.has_value();
    });
    std::ranges::sort(*entries, {}, &FolderEntry::name);
    return whole;
  }

  bool failed(const std::string& relative) {
    const int reason = errno;
    fail(error_, fmt::format("{}: {}", joinPath(root_, relative), std::strerror(reason)));
    errno = reason;
    return false;
  }

  const std::string root_;
  const std::function<bool(const WalkedItem&)>& visit_;
  ErrorText* error_;
};

// The items of a tree, to be removed: first all files, on all processors, as giving the memory or
// the blocks of many files back takes its time; then the folders, inner ones first.
class Removal {
 public:
  bool run(const std::string& path) {
    const ItemPath item(path);
    struct stat info {};
    const bool isThere =
        item.reached() && ::fstatat(item.folder(), item.name(), &info, AT_SYMLINK_NOFOLLOW) == 0;
    const bool isFolder = isThere && S_ISDIR(info.st_mode);
    if (isFolder) {
      removeFolder(path, info.st_mode);
    } else if (!isThere || ::unlinkat(item.folder(), item.name(), 0) != 0) {
      note(errno);
    }
    errno = firstFailure_;
    return firstFailure_ == 0;
  }

 private:
  // Folders further down are first moved to the top, so that neither their paths get too long nor
  // too many folders are open at a time; so are those for which no descriptor is left.
  static constexpr size_t kDeepest = 100;

  void removeFolder(const std::string& path, mode_t mode) {
    allow(AT_FDCWD, path.c_str(), mode);
    top_ = UniqueFd(::open(path.c_str(), kInnerFolder));
    folders_.push_back(path);
    if (!collect(top_, path, 0)) note(errno);
    for (size_t i = 0; i < lifted_.size(); ++i) {
      const std::string name = lifted_[i];
      folders_.push_back(joinPath(path, name));
      const UniqueFd folder(::openat(top_.get(), name.c_str(), kInnerFolder));
      if (!collect(folder, joinPath(path, name), 1)) note(errno);
    }
    constexpr size_t kFilesPerPart = 32;
    forEachPart(files_.size(), kFilesPerPart, [this](size_t begin, size_t end) {
      for (size_t i = begin; i < end; ++i) {
        if (::unlink(files_[i].c_str()) != 0) note(errno);
      }
    });
    for (size_t i = folders_.size(); i-- > 0;) {
      if (::rmdir(folders_[i].c_str()) != 0) note(errno);
    }
  }

  // Archives may hold folders that even their owner may not write; those are to go as well.
  static void allow(int parent, const char* name, mode_t mode) {
    if ((mode & S_IRWXU) != S_IRWXU) ::fchmodat(parent, name, mode | S_IRWXU, 0);
  }

  // False, with errno, when the folder could not be opened.
  bool collect(const UniqueFd& folder, const std::string& path, size_t depth) {
    if (!folder.valid()) return false;
    std::vector<std::string> inner;
    const size_t known = files_.size();
    const bool whole = forEachEntry(folder.get(), [&](const dirent& entry) {
      const auto kind = kindOfEntry(folder.get(), entry);
      if (!kind) {
        note(errno);
      } else if (*kind == ItemKind::kDirectory) {
        inner.emplace_back(entry.d_name);
      } else {
        files_.push_back(joinPath(path, entry.d_name));
      }
      return true;
    });
    if (!whole && errno == EMFILE && inner.empty() && files_.size() == known) return false;
    if (!whole) note(errno);
    for (const std::string& name : inner) descend(folder, path, name, depth);
    return true;
  }

  void descend(const UniqueFd& parent, const std::string& path, const std::string& name,
               size_t depth) {
    struct stat info {};
    if (::fstatat(parent.get(), name.c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) return note(errno);
    // It was a folder just now; a link's target is nothing to be changed.
    if (S_ISDIR(info.st_mode)) allow(parent.get(), name.c_str(), info.st_mode);
    const std::string inner = joinPath(path, name);
    // With room for the names of what is in it.
    if (depth >= kDeepest || inner.size() + NAME_MAX + 2 > PATH_MAX) return lift(parent, name);
    UniqueFd folder(::openat(parent.get(), name.c_str(), kInnerFolder));
    folders_.push_back(inner);
    if (collect(folder, inner, depth + 1)) return;
    if (errno != EMFILE) return note(errno);
    folder.close();
    folders_.pop_back();
    lift(parent, name);
  }

  void lift(const UniqueFd& parent, const std::string& name) {
    std::string lifted;
    struct stat info {};
    do {
      lifted = fmt::format(".deep-{}", counter_++);
    } while (::fstatat(top_.get(), lifted.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0);
    if (::renameat(parent.get(), name.c_str(), top_.get(), lifted.c_str()) != 0) return note(errno);
    lifted_.push_back(lifted);
  }

  void note(int failure) {
    int none = 0;
    firstFailure_.compare_exchange_strong(none, failure);
  }

  UniqueFd top_;

  std::vector<std::string> files_;
  std::vector<std::string> folders_;
  std::vector<std::string> lifted_;  // names in the top folder
  size_t counter_ = 0;
  std::atomic<int> firstFailure_{0};
};

}  // namespace

bool removeItem(const std::string& path, ErrorText* error) {
  return Removal().run(path) || failWithErrno(error);
}

std::optional<std::vector<std::string>> listDirectory(const std::string& path, ErrorText* error) {
  std::vector<std::string> names;
  const UniqueFd folder = openItem(path, kFolder);
  const bool whole = folder.valid() && forEachEntry(folder.get(), [&](const dirent& entry) {
                       names.emplace_back(entry.d_name);
                       return true;
                     });
  if (!whole) {
    failWithErrno(error);
    return std::nullopt;
  }
  std::sort(names.begin(), names.end());
  return names;
}

bool walkDirectory(const std::string& root, const std::function<bool(const WalkedItem&)>& visit,
                   ErrorText* error) {
  return Walk(root, visit, error).run(false);
}

bool walkDirectoryIfThere(const std::string& root,
                          const std::function<bool(const WalkedItem&)>& visit, ErrorText* error) {
  return Walk(root, visit, error).run(true);
}

}  // namespace tovrek
