#include "archive/ArchiveWriter.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>

#include "archive/deflate.h"
#include "archive/extra_fields.h"
#include "host/BlockStream.h"

namespace tovrek::archive {
namespace {

constexpr size_t kPendingSize = 1 << 18;
constexpr size_t kLongPiece = 1 << 13;  // copying more costs as much as a call to write it
constexpr uint16_t kPlainVersion = 10;
constexpr uint16_t kDeflateVersion = 20;
constexpr uint16_t kZip64Version = 45;

uint32_t or64Mark(uint64_t number, bool marked) {
  return marked ? kSee64 : static_cast<uint32_t>(number);
}

uint16_t neededVersion(const Entry& entry, bool zip64) {
  if (zip64) return kZip64Version;
  return entry.method == kDeflated || entry.isFolder() ? kDeflateVersion : kPlainVersion;
}

// The fields that both headers of an entry begin with, up to the lengths of name and extra fields.
void appendCommon(std::string* out, const Entry& entry, bool sizes64, bool zip64,
                  size_t extraLength) {
  appendNumber(out, neededVersion(entry, zip64));
  appendNumber(out, entry.flags);
  appendNumber(out, entry.method);
  appendNumber(out, entry.dosTime);
  appendNumber(out, entry.dosDate);
  appendNumber(out, entry.crc);
  appendNumber(out, or64Mark(entry.compressedSize, sizes64));
  appendNumber(out, or64Mark(entry.size, sizes64));
  appendNumber(out, static_cast<uint16_t>(entry.name.size()));
  appendNumber(out, static_cast<uint16_t>(extraLength));
}

bool needs64(const Entry& entry) {
  return entry.size >= kSee64 || entry.compressedSize >= kSee64;
}

std::string localHeader(const Entry& entry, std::string_view localExtra, bool zip64) {
  std::string extra;
  if (zip64) {
    appendNumber(&extra, kZip64Extra);
    appendNumber(&extra, uint16_t{16});
    appendNumber(&extra, entry.size);
    appendNumber(&extra, entry.compressedSize);
  }
  extra += localExtra;
  std::string header;
  appendNumber(&header, kLocalHeader);
  appendCommon(&header, entry, zip64, zip64, extra.size());
  return header + entry.name + extra;
}

std::string centralHeader(const Entry& entry) {
  const bool sizes64 = needs64(entry);
  const bool offset64 = entry.headerOffset >= kSee64;
  std::string extra;
  if (sizes64 || offset64) {
    appendNumber(&extra, kZip64Extra);
    appendNumber(&extra, static_cast<uint16_t>((sizes64 ? 16 : 0) + (offset64 ? 8 : 0)));
    if (sizes64) appendNumber(&extra, entry.size);
    if (sizes64) appendNumber(&extra, entry.compressedSize);
    if (offset64) appendNumber(&extra, entry.headerOffset);
  }
  extra += entry.extra;
  std::string header;
  appendNumber(&header, kCentralHeader);
  appendNumber(&header, entry.madeBy);
  appendCommon(&header, entry, sizes64, sizes64 || offset64, extra.size());
  appendNumber(&header, static_cast<uint16_t>(entry.comment.size()));
  appendNumber(&header, uint16_t{0});  // disk
  appendNumber(&header, uint16_t{0});  // internal attributes
  appendNumber(&header, entry.attributes);
  appendNumber(&header, or64Mark(entry.headerOffset, offset64));
  return header + entry.name + extra + entry.comment;
}

}  // namespace

bool ArchiveWriter::add(Entry entry, std::string_view localExtra, Bytes packed, ErrorText* error) {
  entry.headerOffset = offset_;
  entry.extra = withoutZip64(entry.extra);
  if (!write(localHeader(entry, localExtra, needs64(entry)), error) ||
      !write(asText(packed), error)) {
    return false;
  }
  entries_.push_back(std::move(entry));
  return true;
}

bool ArchiveWriter::begin(const Entry& entry, std::string_view localExtra, ErrorText* error) {
  begun_ = offset_;
  // Room for growth between the first look at the file and its end, and of what does not pack.
  constexpr uint64_t kMargin = 64 << 20;
  begunAs64_ = entry.size >= kSee64 - kMargin;
  // The header's place, until its numbers are known.
  return flush(error) && write(localHeader(entry, localExtra, begunAs64_), error);
}

bool ArchiveWriter::end(Entry entry, std::string_view localExtra, ErrorText* error) {
  if (needs64(entry) && !begunAs64_) return fail(error, std::strerror(EFBIG));
  entry.headerOffset = begun_;
  if (!flush(error) || !file_.writeAt(begun_, localHeader(entry, localExtra, begunAs64_), error)) {
    return false;
  }
  entries_.push_back(std::move(entry));
  return true;
}

bool ArchiveWriter::abandon(ErrorText* error) {
  pending_.clear();
  offset_ = begun_;
  return file_.cutTo(begun_, error);
}

bool ArchiveWriter::addStored(Entry* entry, std::string_view localExtra, InputFile* from,
                              ErrorText* error) {
  if (!begin(*entry, localExtra, error) || !flush(error) || !copyStored(entry, from, error)) {
    return false;
  }
  entry->compressedSize = entry->size;
  return end(*entry, localExtra, error);
}

bool ArchiveWriter::addPart(Entry entry, std::string_view localExtra, const InputFile& from,
                            uint64_t offset, ErrorText* error) {
  entry.compressedSize = entry.size;
  if (!begin(entry, localExtra, error) || !flush(error) ||
      !file_.write(from, offset, entry.size, error)) {
    return false;
  }
  offset_ += entry.size;
  return end(std::move(entry), localExtra, error);
}

// Reading and the checksum go on while the bytes before are being written.
bool ArchiveWriter::copyStored(Entry* entry, InputFile* from, ErrorText* error) {
  entry->crc = 0;
  entry->size = 0;
  std::atomic<bool> failed{false};
  ErrorText notWritten;
  {
    BlockStream output([&](std::string_view block) {
      if (!failed && !write(block, &notWritten)) failed = true;
    });
    while (!failed) {
      const std::span<char> room = output.room();
      const auto count = from->read(room, error);
      if (!count) return false;
      if (*count == 0) break;
      entry->crc = crcOf(std::as_bytes(room.first(*count)), entry->crc);
      entry->size += *count;
      output.took(*count);
    }
  }
  return !failed || fail(error, notWritten.text());
}

namespace {

// The record that holds the numbers too large for the end record, and where to find it.
std::string zip64EndRecords(uint16_t madeBy, uint64_t count, uint64_t start, uint64_t end) {
  std::string records;
  appendNumber(&records, kZip64EndRecord);
  appendNumber(&records, uint64_t{kZip64EndRecordSize - 12});
  appendNumber(&records, madeBy);
  appendNumber(&records, kZip64Version);
  appendNumber(&records, uint64_t{0});  // both disks
  appendNumber(&records, count);
  appendNumber(&records, count);
  appendNumber(&records, end - start);
  appendNumber(&records, start);
  appendNumber(&records, kZip64Locator);
  appendNumber(&records, uint32_t{0});
  appendNumber(&records, end);
  appendNumber(&records, uint32_t{1});
  return records;
}

}  // namespace

bool ArchiveWriter::finish(std::string_view comment, ErrorText* error) {
  const uint64_t start = offset_;
  for (const Entry& entry : entries_) {
    if (!write(centralHeader(entry), error)) return false;
  }
  const uint64_t end = offset_;
  const uint64_t count = entries_.size();
  std::string records;
  if (count >= kSee64Short || start >= kSee64 || end - start >= kSee64) {
    const uint16_t madeBy = entries_.empty() ? uint16_t{0} : entries_.front().madeBy;
    records = zip64EndRecords(madeBy, count, start, end);
  }
  const auto shortCount = static_cast<uint16_t>(std::min<uint64_t>(count, kSee64Short));
  appendNumber(&records, kEndRecord);
  appendNumber(&records, uint32_t{0});
  appendNumber(&records, shortCount);
  appendNumber(&records, shortCount);
  appendNumber(&records, or64Mark(end - start, end - start >= kSee64));
  appendNumber(&records, or64Mark(start, start >= kSee64));
  appendNumber(&records, static_cast<uint16_t>(comment.size()));
  records += comment;
  return write(records, error) && flush(error);
}

bool ArchiveWriter::write(std::string_view bytes, ErrorText* error) {
  offset_ += bytes.size();
  if (bytes.size() < kLongPiece && pending_.size() + bytes.size() <= kPendingSize) {
    pending_ += bytes;
    return true;
  }
  const bool written = file_.write(pending_, bytes, error);
  pending_.clear();
  return written;
}

bool ArchiveWriter::flush(ErrorText* error) {
  const bool written = file_.write(pending_, error);
  pending_.clear();
  return written;
}

std::string timeExtra(time_t modified) {
  std::string extra;
  if (modified < INT32_MIN || modified > INT32_MAX) return extra;
  appendNumber(&extra, kTimeExtra);
  appendNumber(&extra, uint16_t{5});
  extra.push_back(1);  // the time of change only
  appendNumber(&extra, static_cast<uint32_t>(modified));
  return extra;
}

std::string withoutZip64(std::string_view extra) {
  std::string result;
  forEachExtraField(asBytes(extra), [&](const ExtraField& field) {
    if (field.kind != kZip64Extra) result += asText(field.whole);
    return true;
  });
  return result;
}

}  // namespace tovrek::archive
