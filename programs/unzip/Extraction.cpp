#include "programs/unzip/Extraction.h"

#include <fmt/format.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <deque>
#include <map>
#include <set>

#include "archive/ordered_work.h"
#include "host/files.h"
#include "host/paths.h"
#include "host/printable.h"
#include "host/progress_report.h"
#include "programs/unzip/padded_name.h"
#include "programs/unzip/status.h"
#include "programs/unzip/unpack_entry.h"

namespace tovrek::unzip {
namespace {

using archive::Bytes;
using archive::Entry;

struct Result {
  int status = kDone;
  std::string text{};  // for standard error
};

struct Worker {
  explicit Worker(const FolderCursor& destination) : folders(destination) {}
  FolderCursor folders;
  archive::Inflater inflater;
  archive::Buffer room;
};

// False with errno when the file could not be written; damaged contents are a `fault`.
bool writeContents(const archive::ArchiveReader& reader, const archive::StandIns* standIns,
                   const Entry& entry, const NewFile& file, Worker* worker, std::string* fault) {
  if (standIns != nullptr && archive::StandIns::mayStandFor(entry, reader.packed(entry))) {
    *fault = contentsFault(entry, reader.packed(entry));
    return !fault->empty() || (file.write(standIns->lineFor(entry)) && file.extendTo(entry.size));
  }
  // Into the mapped file, so that it needs no memory of its own.
  if (entry.method != archive::kStored && entry.size > kLargestInMemory) {
    return file.writeMapped(entry.size, [&](std::span<std::byte> target) {
      const bool sound = unpackInto(reader, entry, &worker->inflater, target);
      *fault = sound ? contentsFault(entry, target) : kBadData;
    });
  }
  Bytes contents;
  if (!unpackEntry(reader, entry, &worker->inflater, &worker->room, &contents, fault)) return true;
  return file.write(archive::asText(contents));
}

uint64_t bytesOf(const std::vector<PlannedItem>& files) {
  uint64_t bytes = 0;
  for (const PlannedItem& file : files) bytes += file.entry->size;
  return bytes;
}

class Extraction {
 public:
  Extraction(const archive::ArchiveReader& reader, const ExtractionPlan& plan,
             const archive::StandIns* standIns, const UnzipOptions& options, const Streams& streams,
             const FolderCursor& destination)
      : reader_(reader),
        plan_(plan),
        standIns_(standIns),
        options_(options),
        streams_(streams),
        cursor_(destination),
        mask_(creationMask()),
        progress_(bytesOf(plan.files)) {
    for (size_t i = 0; i < archive::workerCount(); ++i) workers_.emplace_back(destination);
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
    return printable(options_.destination.empty() ? item.path
                                                  : joinPath(options_.destination, item.path));
  }

  void report(const char* verb, const std::string& text) const {
    if (options_.quiet == 0) streams_.out(fmt::format("{:>11}: {}\n", verb, text));
  }

  void take(const Result& result) {
    if (!result.text.empty()) streams_.error(result.text);
    status_ = std::max(status_, result.status);
  }

  // The permission bits an item gets; set-id bits are dropped.
  uint32_t permissions(const Entry& entry) const {
    if (const uint32_t mode = entry.unixMode(); mode != 0) return mode & 0777;
    constexpr uint32_t kDosReadOnly = 1;
    const uint32_t writable = (entry.attributes & kDosReadOnly) != 0 ? 0 : 0222;
    return ((entry.isFolder() ? 0555 : 0444) | writable) & ~mask_;
  }

  Result cannotReach(const PlannedItem& item) const {
    const int reason = errno;
    if (reason == ELOOP || reason == ENOTDIR || reason == EEXIST) {
      return {kDamaged,
              fmt::format("checkdir error:  something that is no folder stands in the way\n"
                          "                 unable to process {}.\n",
                          printable(item.entry->name))};
    }
    return {kDamaged, fmt::format("checkdir error:  cannot create a folder\n"
                                  "                 {}\n"
                                  "                 unable to process {}.\n",
                                  std::strerror(reason), printable(item.entry->name))};
  }

  Result cannotWrite(std::string_view what, const PlannedItem& item) const {
    return {kCannotWrite,
            fmt::format("error:  {} {}\n        {}\n", what, shown(item), std::strerror(errno))};
  }

  void makeFolders() {
    for (size_t i = 0; i < plan_.folders.size(); ++i) {
      const PlannedItem& folder = plan_.folders[i];
      const bool hasParent = cursor_.enter(folderOf(folder.path), true);
      if (hasParent && cursor_.makeFolder(nameOf(folder.path))) {
        report("creating", shown(folder) + "/");
        made_.insert(i);
      } else if (!hasParent || !cursor_.enter(folder.path, false)) {
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
      progress_.add(plan_.files[i].entry->size);
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
    const FolderCursor& folder = worker->folders;
    if (!worker->folders.enter(folderOf(item.path), true)) return cannotReach(item);
    const std::string name = nameOf(item.path);
    if (item.replace && !folder.remove(name) && errno != ENOENT) {
      return cannotWrite("cannot delete old", item);
    }
    NewFile file = folder.createFile(name);
    if (!file.isOpen()) return cannotWrite("cannot create", item);
    std::string fault;
    const bool written = writeContents(reader_, standIns_, entry, file, worker, &fault) &&
                         file.finish(permissions(entry), entry.modified());
    if (written && fault.empty()) return {};
    const int reason = errno;
    folder.remove(name);
    if (!fault.empty()) return {kDamaged, fmt::format("{}  {}\n", paddedName(shown(item)), fault)};
    return {kCannotWrite,
            fmt::format("{}:  write error ({})\n", shown(item), std::strerror(reason))};
  }

  void makeLinks() {
    for (const PlannedItem& item : plan_.links) take(makeLink(item));
    if (plan_.links.empty() || options_.quiet > 0) return;
    streams_.out("finishing deferred symbolic links:\n");
    for (const PlannedItem& item : plan_.links) {
      streams_.out(
          fmt::format("  {} -> {}\n", paddedName(shown(item)), printable(targets_[&item])));
    }
  }

  Result makeLink(const PlannedItem& item) {
    Bytes contents;
    std::string fault;
    // Nothing longer can be a link's target; unpacking it would be for nothing.
    const bool sound =
        item.entry->size < PATH_MAX && unpackEntry(reader_, *item.entry, &workers_[0].inflater,
                                                   &workers_[0].room, &contents, &fault);
    const std::string target(archive::asText(contents));
    if (!sound || target.empty() || target.find('\0') != std::string::npos) {
      return {kDamaged, fmt::format("{}  {}\n", paddedName(shown(item)),
                                    fault.empty() ? "is no proper symbolic link" : fault)};
    }
    targets_[&item] = target;
    report("linking", fmt::format("{}  -> {} ", paddedName(shown(item)), printable(target)));
    if (!cursor_.enter(folderOf(item.path), true)) return cannotReach(item);
    const std::string name = nameOf(item.path);
    if (item.replace) cursor_.remove(name);
    if (cursor_.makeLink(name, target)) return {};
    return {kCannotWrite,
            fmt::format("symlink error:  {}: {}\n", shown(item), std::strerror(errno))};
  }

  // Last, because writing into a folder changes its time and may not be permitted any more. Inner
  // folders come first.
  void finishFolders() {
    for (size_t i = plan_.folders.size(); i-- > 0;) {
      if (!made_.contains(i)) continue;  // one that was there keeps its own
      const PlannedItem& item = plan_.folders[i];
      if (!cursor_.enter(item.path, false)) continue;
      cursor_.finish(permissions(*item.entry), item.entry->modified());
    }
  }

  const archive::ArchiveReader& reader_;
  const ExtractionPlan& plan_;
  const archive::StandIns* standIns_;
  const UnzipOptions& options_;
  const Streams& streams_;
  FolderCursor cursor_;
  uint32_t mask_;
  ProgressReport progress_;
  std::deque<Worker> workers_;
  std::map<const PlannedItem*, std::string> targets_;
  std::set<size_t> made_;  // folders that were not there before
  int status_ = kDone;
};

}  // namespace

int extract(const archive::ArchiveReader& reader, const ExtractionPlan& plan,
            const archive::StandIns* standIns, const UnzipOptions& options, const Streams& streams,
            const FolderCursor& destination) {
  return Extraction(reader, plan, standIns, options, streams, destination).run();
}

}  // namespace tovrek::unzip
