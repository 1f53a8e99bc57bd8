#include "programs/unzip/Extraction.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <deque>
#include <map>
#include <set>

#include "archive/ordered_work.h"
#include "host/file_io.h"
#include "host/paths.h"
#include "log/SystemLog.h"
#include "programs/unzip/padded_name.h"
#include "programs/unzip/status.h"
#include "programs/unzip/unpack_entry.h"

namespace tovrek::unzip {
namespace {

using archive::Bytes;
using archive::Entry;

// Larger entries are unpacked right into the mapped file, so that they need no memory of their own.
constexpr uint64_t kLargestInMemory = 8 << 20;

struct Result {
  int status = kDone;
  std::string text{};  // for standard error
};

struct Worker {
  explicit Worker(int destination) : folders(destination) {}
  FolderCursor folders;
  archive::Inflater inflater;
  archive::Buffer room;
};

bool inflateIntoFile(const Entry& entry, Bytes packed, int fd, Worker* worker, std::string* fault) {
  // Reserved first: running out of space while writing to a mapping would be a signal.
  const int reserved = ::posix_fallocate(fd, 0, static_cast<off_t>(entry.size));
  if (reserved != 0) {
    errno = reserved;
    return false;
  }
  void* address = ::mmap(nullptr, entry.size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  if (address == MAP_FAILED) return false;
  const std::span<std::byte> target(static_cast<std::byte*>(address), entry.size);
  *fault = worker->inflater.inflate(packed, target) ? contentsFault(entry, target) : kBadData;
  ::munmap(address, entry.size);
  return true;
}

// False with errno when the file could not be written; damaged contents are a `fault`.
bool writeContents(const archive::ArchiveReader& reader, const Entry& entry, int fd, Worker* worker,
                   std::string* fault) {
  if (entry.method == archive::kDeflated && entry.size > kLargestInMemory) {
    return inflateIntoFile(entry, reader.packed(entry), fd, worker, fault);
  }
  Bytes contents;
  if (!unpackEntry(reader, entry, &worker->inflater, &worker->room, &contents, fault)) return true;
  return writeAll(fd, {reinterpret_cast<const char*>(contents.data()), contents.size()});
}

class Extraction {
 public:
  Extraction(const archive::ArchiveReader& reader, const ExtractionPlan& plan,
             const UnzipOptions& options, int destination)
      : reader_(reader), plan_(plan), options_(options), cursor_(destination) {
    for (size_t i = 0; i < archive::workerCount(); ++i) workers_.emplace_back(destination);
    mask_ = ::umask(0);
    ::umask(mask_);
  }

  int run() {
    makeFolders();
    writeFiles();
    makeLinks();
    finishFolders();
    return plan_.endedByInput ? std::max(status_, kWarning) : status_;
  }

 private:
  std::string shown(const PlannedItem& item) const {
    return options_.destination.empty() ? item.path : joinPath(options_.destination, item.path);
  }

  void report(const char* verb, const std::string& text) const {
    if (options_.quiet == 0) printOut(fmt::format("{:>11}: {}\n", verb, text));
  }

  void take(const Result& result) {
    if (!result.text.empty()) printError(result.text);
    status_ = std::max(status_, result.status);
  }

  // The permission bits an item gets; set-id bits are dropped.
  mode_t permissions(const Entry& entry) const {
    if (const mode_t mode = entry.unixMode(); mode != 0) return mode & 0777;
    constexpr uint32_t kDosReadOnly = 1;
    const mode_t writable = (entry.attributes & kDosReadOnly) != 0 ? 0 : 0222;
    return ((entry.isFolder() ? 0555 : 0444) | writable) & ~mask_;
  }

  Result cannotReach(const PlannedItem& item) const {
    const int reason = errno;
    if (reason == ELOOP || reason == ENOTDIR || reason == EEXIST) {
      return {kDamaged,
              fmt::format("checkdir error:  something that is no folder stands in the way\n"
                          "                 unable to process {}.\n",
                          item.entry->name)};
    }
    return {kDamaged, fmt::format("checkdir error:  cannot create a folder\n"
                                  "                 {}\n"
                                  "                 unable to process {}.\n",
                                  std::strerror(reason), item.entry->name)};
  }

  void makeFolders() {
    for (size_t i = 0; i < plan_.folders.size(); ++i) {
      const PlannedItem& folder = plan_.folders[i];
      const int parent = cursor_.enter(folderOf(folder.path), true);
      if (parent != -1 && ::mkdirat(parent, nameOf(folder.path).c_str(), 0777) == 0) {
        report("creating", shown(folder) + "/");
        made_.insert(i);
      } else if (parent == -1 || cursor_.enter(folder.path, false) == -1) {
        take(cannotReach(folder));
      }
    }
  }

  void writeFiles() {
    std::vector<Result> results(plan_.files.size());
    archive::OrderedWork jobs;
    jobs.count = plan_.files.size();
    jobs.weight = [](size_t) { return 0; };
    jobs.work = [&](size_t worker, size_t i) {
      results[i] = writeFile(plan_.files[i], &workers_[worker]);
    };
    jobs.deliver = [&](size_t i) {
      const PlannedItem& item = plan_.files[i];
      const bool stored = item.entry->method == archive::kStored;
      if (options_.quiet == 0) {
        report(stored ? "extracting" : "inflating", fmt::format("{}  ", paddedName(shown(item))));
      }
      take(results[i]);
      return results[i].status != kCannotWrite;
    };
    archive::runInOrder(jobs);
  }

  Result writeFile(const PlannedItem& item, Worker* worker) const {
    const Entry& entry = *item.entry;
    const int folder = worker->folders.enter(folderOf(item.path), true);
    if (folder == -1) return cannotReach(item);
    const std::string name = nameOf(item.path);
    if (item.replace && ::unlinkat(folder, name.c_str(), 0) != 0 && errno != ENOENT) {
      return {kCannotWrite, fmt::format("error:  cannot delete old {}\n        {}\n", shown(item),
                                        std::strerror(errno))};
    }
    UniqueFd fd(
        ::openat(folder, name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!fd.valid()) {
      return {kCannotWrite, fmt::format("error:  cannot create {}\n        {}\n", shown(item),
                                        std::strerror(errno))};
    }
    std::string fault;
    const timespec times[2] = {{0, UTIME_OMIT}, {entry.modified(), 0}};
    const bool written = writeContents(reader_, entry, fd.get(), worker, &fault) &&
                         ::fchmod(fd.get(), permissions(entry)) == 0 &&
                         ::futimens(fd.get(), times) == 0 && fd.close();
    if (written && fault.empty()) return {};
    const int reason = errno;
    ::unlinkat(folder, name.c_str(), 0);
    if (!fault.empty()) return {kDamaged, fmt::format("{}  {}\n", paddedName(shown(item)), fault)};
    return {kCannotWrite,
            fmt::format("{}:  write error ({})\n", shown(item), std::strerror(reason))};
  }

  void makeLinks() {
    for (const PlannedItem& item : plan_.links) take(makeLink(item));
    if (plan_.links.empty() || options_.quiet > 0) return;
    printOut("finishing deferred symbolic links:\n");
    for (const PlannedItem& item : plan_.links) {
      printOut(fmt::format("  {} -> {}\n", paddedName(shown(item)), targets_[&item]));
    }
  }

  Result makeLink(const PlannedItem& item) {
    Bytes contents;
    std::string fault;
    // Nothing longer can be a link's target; unpacking it would be for nothing.
    const bool sound =
        item.entry->size < PATH_MAX && unpackEntry(reader_, *item.entry, &workers_[0].inflater,
                                                   &workers_[0].room, &contents, &fault);
    const std::string target(reinterpret_cast<const char*>(contents.data()), contents.size());
    if (!sound || target.empty() || target.find('\0') != std::string::npos) {
      return {kDamaged, fmt::format("{}  {}\n", paddedName(shown(item)),
                                    fault.empty() ? "is no proper symbolic link" : fault)};
    }
    targets_[&item] = target;
    report("linking", fmt::format("{}  -> {} ", paddedName(shown(item)), target));
    const int folder = cursor_.enter(folderOf(item.path), true);
    if (folder == -1) return cannotReach(item);
    const std::string name = nameOf(item.path);
    if (item.replace) ::unlinkat(folder, name.c_str(), 0);
    if (::symlinkat(target.c_str(), folder, name.c_str()) == 0) return {};
    return {kCannotWrite,
            fmt::format("symlink error:  {}: {}\n", shown(item), std::strerror(errno))};
  }

  // Last, because writing into a folder changes its time and may not be permitted any more. Inner
  // folders come first.
  void finishFolders() {
    for (size_t i = plan_.folders.size(); i-- > 0;) {
      if (!made_.contains(i)) continue;  // one that was there keeps its own
      const PlannedItem& item = plan_.folders[i];
      const int folder = cursor_.enter(item.path, false);
      if (folder == -1) continue;
      const timespec times[2] = {{0, UTIME_OMIT}, {item.entry->modified(), 0}};
      ::futimens(folder, times);
      ::fchmod(folder, permissions(*item.entry));
    }
  }

  const archive::ArchiveReader& reader_;
  const ExtractionPlan& plan_;
  const UnzipOptions& options_;
  FolderCursor cursor_;
  std::deque<Worker> workers_;
  std::map<const PlannedItem*, std::string> targets_;
  std::set<size_t> made_;  // folders that were not there before
  mode_t mask_ = 0;
  int status_ = kDone;
};

}  // namespace

int extract(const archive::ArchiveReader& reader, const ExtractionPlan& plan,
            const UnzipOptions& options, int destination) {
  return Extraction(reader, plan, options, destination).run();
}

}  // namespace tovrek::unzip
