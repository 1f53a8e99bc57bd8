#include "programs/zip/ArchiveUpdate.h"

#include <fmt/format.h>

#include <algorithm>
#include <deque>
#include <unordered_map>

#include "archive/ordered_work.h"
#include "archive/patterns.h"
#include "host/AtomicFile.h"
#include "host/files.h"
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
    if (!archive::matchesAny(options_.operands, entry.name)) {
      steps.push_back({&entry});
    } else {
      messages_.tell(fmt::format("deleting: {}\n", entry.name));
    }
  }
  if (steps.size() == old_->entries().size()) return messages_.failNothingToDo();
  if (!steps.empty()) return writeArchive(steps);
  messages_.warn("zip file empty");
  ErrorText error;
  if (removeItem(options_.archive, &error)) return kDone;
  return messages_.failWith(kWriteFailed, options_.archive, error.text());
}

int ArchiveUpdate::writeArchive(const std::vector<Step>& steps) {
  AtomicFile file;
  ErrorText error;
  if (!file.open(options_.archive, &error, AtomicFile::Lasting::kNo)) {
    return messages_.failWith(kCannotCreate,
                              fmt::format("Could not create output file ({})", options_.archive),
                              error.text());
  }
  ArchiveWriter writer(&file);
  const bool written = writeEntries(steps, &writer, &error) &&
                       writer.finish(old_ != nullptr ? old_->comment() : std::string(), &error) &&
                       unreadable_ < steps.size() && file.commit(&error);
  if (written) return unreadable_ == 0 ? kDone : kSomeUnreadable;
  if (unreadable_ == steps.size()) return messages_.failNothingToDo();
  return messages_.failWith(kWriteFailed, "Output file write failure (write error on zip file)",
                            error.text());
}

bool ArchiveUpdate::writeEntries(const std::vector<Step>& steps, ArchiveWriter* writer,
                                 ErrorText* error) {
  std::deque<Packer> packers;
  for (size_t i = 0; i < archive::workerCount(); ++i) packers.emplace_back(options_.level);
  std::vector<PackedItem> results(steps.size());
  archive::OrderedWork jobs;
  jobs.count = steps.size();
  // The packed form and, for a reused entry, what it is compared with.
  jobs.weight = [&](size_t i) {
    const SourceItem* item = steps[i].item;
    return item == nullptr ? 0 : 2 * item->status.size;
  };
  jobs.work = [&](size_t worker, size_t i) {
    if (steps[i].item == nullptr) return;
    results[i] = packItem(*steps[i].item, !options_.withoutExtra, source_, &packers[worker]);
  };
  jobs.deliver = [&](size_t i) {
    const bool goOn = writeStep(steps[i], &results[i], writer, error);
    results[i] = PackedItem();
    return goOn;
  };
  return archive::runInOrder(jobs);
}

bool ArchiveUpdate::writeStep(const Step& step, PackedItem* packed, ArchiveWriter* writer,
                              ErrorText* error) {
  if (step.item != nullptr && packed->fault.empty()) {
    const std::string extra = packed->entry.extra;
    const bool written = packed->large.isOpen()
                             ? writer->addStored(&packed->entry, extra, &packed->large, error)
                             : writer->add(packed->entry, extra, packed->packed.bytes(), error);
    if (written) reportPacked(step, packed->entry);
    return written;
  }
  if (step.item != nullptr) {
    ++unreadable_;
    messages_.warn(
        fmt::format("could not open for reading: {} ({})", step.item->path, packed->fault));
  }
  return step.kept == nullptr || writeKept(*step.kept, writer, error);
}

bool ArchiveUpdate::writeKept(const Entry& kept, ArchiveWriter* writer, ErrorText* error) const {
  Entry entry = kept;
  constexpr uint16_t kFlagDescriptor = 1 << 3;
  // The check byte of an encrypted entry depends on the flag.
  if (!entry.isEncrypted()) entry.flags = static_cast<uint16_t>(entry.flags & ~kFlagDescriptor);
  const std::string extra = archive::withoutZip64(archive::asText(old_->localExtra(entry)));
  return writer->add(entry, extra, old_->packed(kept), error);
}

void ArchiveUpdate::reportPacked(const Step& step, const Entry& entry) const {
  if (options_.quiet) return;
  const uint64_t saved = entry.size - entry.compressedSize;
  const uint64_t share = entry.size == 0 ? 0 : (saved * 100 + entry.size / 2) / entry.size;
  messages_.tell(fmt::format("{}: {} ({} {}%)\n", step.replaces ? "updating" : "  adding",
                             entry.name, entry.method == archive::kStored ? "stored" : "deflated",
                             share));
}

}  // namespace tovrek::zip
