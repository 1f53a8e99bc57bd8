#include "programs/zip/ArchiveUpdate.h"

#include <fmt/format.h>

#include <algorithm>
#include <deque>
#include <unordered_map>

#include "archive/ordered_work.h"
#include "archive/patterns.h"
#include "host/AtomicFile.h"
#include "host/files.h"
#include "host/progress_report.h"
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

struct ArchiveUpdate::Job {
  const Step* step = nullptr;
  LargeFile plan{};
  uint64_t piece = 0;

  bool isInPieces() const {
    return plan.way == LargeFile::Way::kPieces || plan.way == LargeFile::Way::kReuse;
  }
  // Known only while it is written what there was to do.
  bool isDoneByWriting(const PackedItem& result) const {
    return plan.way == LargeFile::Way::kReuse || plan.way == LargeFile::Way::kLeft ||
           result.large.isOpen();
  }
  // The bytes of the file that it has to do with.
  uint64_t size() const {
    if (step->item == nullptr || step->item->status.kind != ItemKind::kFile) return 0;
    const uint64_t whole = step->item->status.size;
    return plan.way == LargeFile::Way::kPieces
               ? std::min<uint64_t>(archive::kPieceSize, whole - piece * archive::kPieceSize)
               : whole;
  }
  // The memory that the result takes until it is written.
  uint64_t weight() const {
    if (step->item == nullptr) return 0;
    if (isInPieces() || plan.way == LargeFile::Way::kStore) return archive::kPieceSize;
    if (plan.way == LargeFile::Way::kLeft) return 0;
    // The packed form and, for a reused entry, what it is compared with.
    return 2 * step->item->status.size;
  }
};

std::vector<ArchiveUpdate::Job> ArchiveUpdate::jobsFor(const std::vector<Step>& steps) const {
  std::vector<const SourceItem*> items(steps.size());
  for (size_t i = 0; i < steps.size(); ++i) items[i] = steps[i].item;
  const std::vector<LargeFile> plans = planLargeFiles(items, source_, options_.level);
  std::vector<Job> jobs;
  for (size_t i = 0; i < steps.size(); ++i) {
    const uint64_t count = items[i] == nullptr ? 1 : plans[i].pieceCount(items[i]->status.size);
    for (uint64_t piece = 0; piece < count; ++piece) jobs.push_back({&steps[i], plans[i], piece});
  }
  return jobs;
}

bool ArchiveUpdate::writeEntries(const std::vector<Step>& steps, ArchiveWriter* writer,
                                 ErrorText* error) {
  const std::vector<Job> jobs = jobsFor(steps);
  // One more, for what is packed while it is written.
  std::deque<Packer> packers;
  for (size_t i = 0; i <= archive::workerCount(); ++i) packers.emplace_back(options_.level);
  PieceEntry pieces(writer, source_, options_.level, !options_.withoutExtra);
  std::vector<PackedItem> results(jobs.size());
  uint64_t total = 0;
  for (const Job& job : jobs) total += job.size();
  ProgressReport progress(total);
  archive::OrderedWork work;
  work.count = jobs.size();
  work.weight = [&](size_t i) { return jobs[i].weight(); };
  work.work = [&](size_t worker, size_t i) {
    const Job& job = jobs[i];
    const SourceItem* item = job.step->item;
    if (item == nullptr || job.plan.way == LargeFile::Way::kReuse) return;
    results[i] = job.isInPieces()
                     ? packPiece(*item, job.plan.methods.of(job.piece), job.piece, &packers[worker])
                     : packItem(*item, job.plan, !options_.withoutExtra, source_, &packers[worker]);
    if (!job.isDoneByWriting(results[i])) progress.add(job.size());
  };
  work.deliver = [&](size_t i) {
    const bool isDoneNow = jobs[i].isDoneByWriting(results[i]);
    const bool goOn = jobs[i].isInPieces() ? writePiece(jobs[i], &results[i], &packers.back(),
                                                        &pieces, writer, error)
                                           : writeStep(*jobs[i].step, &results[i], writer, error);
    results[i] = PackedItem();
    if (isDoneNow) progress.add(jobs[i].size());
    return goOn;
  };
  return archive::runInOrder(work);
}

bool ArchiveUpdate::writePiece(const Job& job, PackedItem* packed, Packer* packer,
                               PieceEntry* pieces, ArchiveWriter* writer, ErrorText* error) {
  const SourceItem& item = *job.step->item;
  const bool written = job.plan.way == LargeFile::Way::kReuse
                           ? pieces->addKnown(item, job.plan, packer, error)
                           : pieces->add(item, job.plan, job.piece, *packed, error);
  const bool isLast = job.piece + 1 == job.plan.pieceCount(item.status.size);
  if (!written || !isLast) return written;
  packed->fault = pieces->fault();
  if (!packed->fault.empty()) return writeStep(*job.step, packed, writer, error);
  reportPacked(*job.step, pieces->entry());
  return true;
}

bool ArchiveUpdate::writeStep(const Step& step, PackedItem* packed, ArchiveWriter* writer,
                              ErrorText* error) {
  if (step.item != nullptr && packed->fault.empty()) {
    if (step.item->standsFor != nullptr) return writeLeft(step, packed, writer, error);
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

// unzip has checked the contents against their CRC.
bool ArchiveUpdate::writeLeft(const Step& step, PackedItem* packed, ArchiveWriter* writer,
                              ErrorText* error) const {
  const Entry& left = *step.item->standsFor;
  packed->entry.crc = left.crc;
  const std::string extra = packed->entry.extra;
  if (!writer->addPart(packed->entry, extra, standIns_->file(), left.dataOffset, error) ||
      !standIns_->isUnchanged(error)) {
    return false;
  }
  reportPacked(step, packed->entry);
  return true;
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
