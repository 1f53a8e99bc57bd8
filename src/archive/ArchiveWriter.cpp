#include "archive/ArchiveWriter.h"

#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>

#include "archive/deflate.h"
#include "host/BlockStream.h"
#include "host/file_io.h"

namespace tovrek::archive {
namespace {

constexpr size_t kPendingSize = 1 << 18;
constexpr size_t kLongPiece = 1 << 13;  // copying more costs as much as a call to write it
constexpr uint16_t kPlainVersion = 10;
constexpr uint16_t kDeflateVersion = 20;
constexpr uint16_t kZip64Version = 45;

std::string_view textOf(Bytes bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

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

bool ArchiveWriter::add(Entry entry, std::string_view localExtra, Bytes packed) {
  entry.headerOffset = offset_;
  entry.extra = withoutZip64(entry.extra);
  if (!write(localHeader(entry, localExtra, needs64(entry)))) return false;
  if (!write(textOf(packed))) return false;
  entries_.push_back(std::move(entry));
  return true;
}

bool ArchiveWriter::addStored(Entry* entry, std::string_view localExtra, int from) {
  entry->headerOffset = offset_;
  // Room for growth between the first look at the file and its end.
  constexpr uint64_t kMargin = 64 << 20;
  const bool zip64 = entry->size >= kSee64 - kMargin;
  const std::string room = localHeader(*entry, localExtra, zip64);
  if (!write(room)) return false;

  if (!flush() || !copyStored(entry, from)) return false;
  entry->compressedSize = entry->size;
  if (needs64(*entry) && !zip64) {
    errno = EFBIG;
    return false;
  }
  if (!flush()) return false;
  const std::string header = localHeader(*entry, localExtra, zip64);
  if (::pwrite(fd_, header.data(), header.size(), static_cast<off_t>(entry->headerOffset)) !=
      static_cast<ssize_t>(header.size())) {
    return false;
  }
  entries_.push_back(*entry);
  return true;
}

// Reading and the checksum go on while the bytes before are being written.
bool ArchiveWriter::copyStored(Entry* entry, int from) {
  entry->crc = 0;
  entry->size = 0;
  std::atomic<int> failure{0};
  {
    BlockStream output([&](std::string_view block) {
      if (failure == 0 && !write(block)) failure = errno;
    });
    while (failure == 0) {
      const std::span<char> room = output.room();
      const ssize_t count = ::read(from, room.data(), room.size());
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) failure = errno;
      if (count <= 0) break;
      const auto size = static_cast<size_t>(count);
      entry->crc = crcOf(std::as_bytes(room.first(size)), entry->crc);
      entry->size += size;
      output.took(size);
    }
  }
  if (failure != 0) errno = failure;
  return failure == 0;
}

bool ArchiveWriter::finish(std::string_view comment) {
  const uint64_t start = offset_;
  for (const Entry& entry : entries_) {
    if (!write(centralHeader(entry))) return false;
  }
  const uint64_t end = offset_;
  const uint64_t count = entries_.size();
  std::string records;
  if (count >= kSee64Short || start >= kSee64 || end - start >= kSee64) {
    appendNumber(&records, kZip64EndRecord);
    appendNumber(&records, uint64_t{kZip64EndRecordSize - 12});
    appendNumber(&records, entries_.empty() ? uint16_t{0} : entries_.front().madeBy);
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
  return write(records) && flush();
}

bool ArchiveWriter::write(std::string_view bytes) {
  offset_ += bytes.size();
  if (bytes.size() < kLongPiece && pending_.size() + bytes.size() <= kPendingSize) {
    pending_ += bytes;
    return true;
  }
  // Both in one go.
  const iovec parts[2] = {{pending_.data(), pending_.size()},
                          {const_cast<char*>(bytes.data()), bytes.size()}};
  const ssize_t count = ::writev(fd_, parts, 2);
  size_t written = count < 0 ? 0 : static_cast<size_t>(count);
  if (count < 0 && errno != EINTR) return false;
  if (written < pending_.size()) {
    pending_.erase(0, written);
    written = 0;
    if (!flush()) return false;
  } else {
    written -= pending_.size();
    pending_.clear();
  }
  return writeAll(fd_, bytes.substr(written));
}

bool ArchiveWriter::flush() {
  const bool written = writeAll(fd_, pending_);
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
  const Bytes bytes = std::as_bytes(std::span(extra.data(), extra.size()));
  std::string result;
  for (size_t at = 0; at + 4 <= bytes.size();) {
    const size_t length = numberAt<uint16_t>(bytes, at + 2);
    if (length > bytes.size() - at - 4) break;
    if (numberAt<uint16_t>(bytes, at) != kZip64Extra) result += extra.substr(at, 4 + length);
    at += 4 + length;
  }
  return result;
}

}  // namespace tovrek::archive
