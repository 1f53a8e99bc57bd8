#include "programs/zip/ArchiveUpdate.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <deque>
#include <unordered_map>

#include "archive/ordered_work.h"
#include "host/file_io.h"
#include "host/signals.h"
#include "log/SystemLog.h"
#include "programs/zip/messages.h"
#include "programs/zip/status.h"

namespace tovrek::zip {

using archive::ArchiveWriter;
using archive::Entry;

int ArchiveUpdate::addItems(const std::vector<SourceItem>& items) {
  std::unordered_map<std::string, const SourceItem*> byName;
  std::vector<Step> steps;
  if (old_ != nullptr) {
    for (const SourceItem& item : items) byName.emplace(item.name, &item);
    for (const Entry& entry : old_->entries()) {
      const auto replacement = byName.find(entry.name);
      if (replacement == byName.end()) {
        steps.push_back({&entry});
      } else if (replacement->second != nullptr) {
        steps.push_back({&entry, replacement->second, true});
        replacement->second = nullptr;  // placed
      }
    }
  }
  for (const SourceItem& item : items) {
    if (old_ == nullptr || byName[item.name] != nullptr) steps.push_back({nullptr, &item});
  }
  return writeArchive(steps);
}

int ArchiveUpdate::removeEntries() {
  std::vector<Step> steps;
  for (const Entry& entry : old_->entries()) {
    if (!matchesAny(options_.operands, entry.name)) {
      steps.push_back({&entry});
    } else if (!options_.quiet) {
      printOut(fmt::format("deleting: {}\n", entry.name));
    }
  }
  if (steps.size() == old_->entries().size()) return failNothingToDo(options_);
  if (!steps.empty()) return writeArchive(steps);
  warn(options_, "zip file empty");
  if (::unlink(options_.archive.c_str()) == 0) return kDone;
  return failWith(kWriteFailed, options_.archive, errno);
}

int ArchiveUpdate::writeArchive(const std::vector<Step>& steps) {
  std::string temporary;
  UniqueFd file = createTemporaryBeside(options_.archive, &temporary);
  if (!file.valid()) {
    return failWith(kCannotCreate,
                    fmt::format("Could not create output file ({})", options_.archive), errno);
  }
  const RemovedOnSignal guard(temporary);
  ArchiveWriter writer(file.get());
  errno = 0;
  const bool written = writeEntries(steps, &writer) &&
                       writer.finish(old_ != nullptr ? old_->comment() : std::string()) &&
                       ::fchmod(file.get(), modeForNewFile(options_.archive)) == 0 &&
                       file.close() && unreadable_ < steps.size() &&
                       ::rename(temporary.c_str(), options_.archive.c_str()) == 0;
  if (!written) {
    const int reason = errno;
    ::unlink(temporary.c_str());
    if (unreadable_ == steps.size()) return failNothingToDo(options_);
    return failWith(kWriteFailed, "Output file write failure (write error on zip file)", reason);
  }
  return unreadable_ == 0 ? kDone : kSomeUnreadable;
}

bool ArchiveUpdate::writeEntries(const std::vector<Step>& steps, ArchiveWriter* writer) {
  std::deque<Packer> packers;
  for (size_t i = 0; i < archive::workerCount(); ++i) packers.emplace_back(options_.level);
  std::vector<PackedItem> results(steps.size());
  archive::OrderedWork jobs;
  jobs.count = steps.size();
  // The packed form and, for a reused entry, what it is compared with.
  jobs.weight = [&](size_t i) {
    const SourceItem* item = steps[i].item;
    return item == nullptr ? 0 : 2 * static_cast<uint64_t>(item->info.st_size);
  };
  jobs.work = [&](size_t worker, size_t i) {
    if (steps[i].item == nullptr) return;
    results[i] = packItem(*steps[i].item, !options_.withoutExtra, source_, &packers[worker]);
  };
  jobs.deliver = [&](size_t i) {
    const bool goOn = writeStep(steps[i], &results[i], writer);
    results[i] = PackedItem();
    return goOn;
  };
  return archive::runInOrder(jobs);
}

bool ArchiveUpdate::writeStep(const Step& step, PackedItem* packed, ArchiveWriter* writer) {
  if (step.item != nullptr && packed->fault.empty()) {
    const std::string extra = packed->entry.extra;
    const bool written = packed->large.valid()
                             ? writer->addStored(&packed->entry, extra, packed->large.get())
                             : writer->add(packed->entry, extra, packed->packed.bytes());
    if (written) reportPacked(step, packed->entry);
    return written;
  }
  if (step.item != nullptr) {
    ++unreadable_;
    warn(options_,
         fmt::format("could not open for reading: {} ({})", step.item->path, packed->fault));
  }
  if (step.kept == nullptr) return true;
  Entry entry = *step.kept;
  constexpr uint16_t kFlagDescriptor = 1 << 3;
  // The check byte of an encrypted entry depends on the flag.
  if (!entry.isEncrypted()) entry.flags = static_cast<uint16_t>(entry.flags & ~kFlagDescriptor);
  const archive::Bytes extra = old_->localExtra(entry);
  return writer->add(
      entry, archive::withoutZip64({reinterpret_cast<const char*>(extra.data()), extra.size()}),
      old_->packed(*step.kept));
}

void ArchiveUpdate::reportPacked(const Step& step, const Entry& entry) const {
  if (options_.quiet) return;
  const uint64_t saved = entry.size - entry.compressedSize;
  const uint64_t share = entry.size == 0 ? 0 : (saved * 100 + entry.size / 2) / entry.size;
  printOut(fmt::format("{}: {} ({} {}%)\n", step.replaces ? "updating" : "  adding", entry.name,
                       entry.method == archive::kStored ? "stored" : "deflated", share));
}

}  // namespace tovrek::zip
