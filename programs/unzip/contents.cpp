#include "programs/unzip/contents.h"

#include <fmt/format.h>

#include "archive/ordered_work.h"
#include "programs/unzip/padded_name.h"
#include "programs/unzip/status.h"
#include "programs/unzip/unpack_entry.h"

namespace tovrek::unzip {
namespace {

using archive::ArchiveReader;
using archive::Entry;

// Unpacks all entries in memory and calls `use` for each in order.
template <class Use>
void forEachContents(const ArchiveReader& reader, const Entries& entries, const Use& use) {
  struct Unpacked {
    archive::Buffer room;
    archive::Bytes contents;
    std::string fault;
  };
  std::vector<Unpacked> results(entries.size());
  std::vector<archive::Inflater> inflaters(archive::workerCount());
  archive::OrderedWork jobs;
  jobs.count = entries.size();
  jobs.weight = [&](size_t i) {
    return entries[i]->method == archive::kStored ? 0 : entries[i]->size;
  };
  jobs.work = [&](size_t worker, size_t i) {
    Unpacked& result = results[i];
    unpackEntry(reader, *entries[i], &inflaters[worker], &result.room, &result.contents,
                &result.fault);
  };
  jobs.deliver = [&](size_t i) {
    const bool goOn = use(*entries[i], results[i].contents, results[i].fault);
    results[i].room = archive::Buffer();
    return goOn;
  };
  archive::runInOrder(jobs);
}

}  // namespace

int testEntries(const std::string& path, const ArchiveReader& reader, const Entries& entries,
                const UnzipOptions& options, const Streams& streams) {
  int status = kDone;
  forEachContents(reader, entries,
                  [&](const Entry& entry, archive::Bytes, const std::string& fault) {
                    if (options.quiet == 0) {
                      streams.out(fmt::format("    testing: {}  {}\n", paddedName(entry.name),
                                              fault.empty() ? " OK" : fault));
                    } else if (!fault.empty()) {
                      streams.out(fmt::format("{}  {}\n", paddedName(entry.name), fault));
                    }
                    if (!fault.empty()) status = kDamaged;
                    return true;
                  });
  if (status != kDone) {
    streams.out(fmt::format("At least one error was detected in {}.\n", path));
  } else if (options.quiet < 2) {
    streams.out(fmt::format("No errors detected in compressed data of {}.\n", path));
  }
  return status;
}

int pipeEntries(const ArchiveReader& reader, const Entries& entries, const Streams& streams) {
  int status = kDone;
  forEachContents(reader, entries,
                  [&](const Entry& entry, archive::Bytes contents, const std::string& fault) {
                    if (!fault.empty()) {
                      streams.error(fmt::format("{}  {}\n", paddedName(entry.name), fault));
                      status = kDamaged;
                      return true;
                    }
                    streams.out(archive::asText(contents));
                    if (outputFailed()) status = kCannotWrite;
                    return status != kCannotWrite;
                  });
  return status;
}

}  // namespace tovrek::unzip
