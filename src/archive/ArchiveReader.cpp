#include "archive/ArchiveReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>

#include "archive/code_page.h"
#include "archive/deflate.h"
#include "archive/extra_fields.h"

namespace tovrek::archive {
namespace {

bool contains(Bytes bytes, uint64_t offset, uint64_t size) {
  return size <= bytes.size() && offset <= bytes.size() - size;
}

// Takes the 64-bit numbers that replace the marked fields, in their fixed order. Without a Zip64
// field the marks are sizes of exactly that many bytes.
bool applyZip64(Bytes extra, Entry* entry) {
  std::vector<uint64_t*> wanted;
  for (uint64_t* number : {&entry->size, &entry->compressedSize, &entry->headerOffset}) {
    if (*number == kSee64) wanted.push_back(number);
  }
  if (wanted.empty()) return true;
  bool enough = true;
  const bool whole = forEachExtraField(extra, [&](const ExtraField& field) {
    if (field.kind != kZip64Extra) return true;
    enough = field.contents.size() >= wanted.size() * 8;
    for (size_t i = 0; enough && i < wanted.size(); ++i) {
      *wanted[i] = numberAt<uint64_t>(field.contents, i * 8);
    }
    return false;
  });
  return whole && enough;
}

bool isPlausible(const Entry& entry) {
  if (entry.isEncrypted() || entry.method > kBzip2) return true;
  if (entry.method == kStored) return entry.size == entry.compressedSize;
  if (entry.method == kBzip2) return entry.size <= mostBunzipped(entry.compressedSize);
  if (entry.method != kDeflated) return true;
  return entry.size <= mostInflated(entry.compressedSize);
}

}  // namespace

ArchiveReader::Opened ArchiveReader::open(const std::string& path, ErrorText* error) {
  if (!file_.open(path, error)) return Opened::kUnreadable;
  return openBytes(file_.bytes(), error);
}

ArchiveReader::Opened ArchiveReader::openBytes(Bytes bytes, ErrorText* error) {
  bytes_ = bytes;
  Directory directory;
  bool found = false;
  if (!findDirectory(&directory, &found, error)) {
    return found ? Opened::kDamaged : Opened::kNoEndRecord;
  }
  const bool sound = readDirectory(directory, error) && checkLocalHeaders(directory, error);
  if (sound) replaceBackslashes();
  return sound ? Opened::kDone : Opened::kDamaged;
}

bool ArchiveReader::findDirectory(Directory* directory, bool* found, ErrorText* error) {
  constexpr size_t kLongestComment = 0xffff;
  const size_t size = bytes_.size();
  if (size < kEndRecordSize) return fail(error, "no end of central directory");
  const size_t last = size - kEndRecordSize;
  const size_t first = last > kLongestComment ? last - kLongestComment : 0;
  // Downloads and disks add bytes behind an archive, which do no harm. A record whose comment ends
  // with the file comes first, since a comment may hold anything.
  const auto isRecord = [&](size_t at, bool atEnd) {
    if (numberAt<uint32_t>(bytes_, at) != kEndRecord) return false;
    const size_t comment = numberAt<uint16_t>(bytes_, at + 20);
    return atEnd ? comment == last - at : comment < last - at;
  };
  for (size_t tries = 2 * (last + 1 - first); tries-- > 0;) {
    const bool atEnd = tries > last - first;
    const size_t at = first + (atEnd ? tries - (last + 1 - first) : tries);
    if (!isRecord(at, atEnd)) continue;
    *found = true;
    comment_ = asText(bytes_.subspan(at + kEndRecordSize, numberAt<uint16_t>(bytes_, at + 20)));
    directory->count = numberAt<uint16_t>(bytes_, at + 10);
    directory->size = numberAt<uint32_t>(bytes_, at + 12);
    directory->offset = numberAt<uint32_t>(bytes_, at + 16);
    directory->end = at;
    const uint32_t disks = numberAt<uint32_t>(bytes_, at + 4);
    if (disks != 0 && disks != kSee64) return fail(error, "part of an archive in several files");
    if (!readZip64End(at, directory, error)) return false;
    if (!contains(bytes_, directory->offset, directory->size) ||
        directory->offset + directory->size > directory->end) {
      return fail(error, "the central directory lies outside the file");
    }
    if (directory->offset + directory->size != directory->end) {
      return fail(error, fmt::format("{} bytes that belong to no entry stand before the archive",
                                     directory->end - directory->offset - directory->size));
    }
    return true;
  }
  return fail(error, "no end of central directory");
}

bool ArchiveReader::readZip64End(size_t endRecord, Directory* directory, ErrorText* error) const {
  const bool marked =
      directory->count == kSee64Short || directory->size == kSee64 || directory->offset == kSee64;
  if (!marked || endRecord < kZip64LocatorSize) return true;
  const size_t locator = endRecord - kZip64LocatorSize;
  // Without a locator the marks are plain numbers.
  if (numberAt<uint32_t>(bytes_, locator) != kZip64Locator) return true;
  const uint64_t at = numberAt<uint64_t>(bytes_, locator + 8);
  if (!contains(bytes_.first(locator), at, kZip64EndRecordSize) ||
      numberAt<uint32_t>(bytes_, at) != kZip64EndRecord) {
    return fail(error, "the Zip64 end record is not where it should be");
  }
  directory->count = numberAt<uint64_t>(bytes_, at + 32);
  directory->size = numberAt<uint64_t>(bytes_, at + 40);
  directory->offset = numberAt<uint64_t>(bytes_, at + 48);
  directory->end = at;
  return true;
}

// Reads the record at `*at`, which goes on to the next one. What is wrong with it; null when it is
// sound.
const char* ArchiveReader::readRecord(Bytes records, size_t* at, Entry* entry) {
  const auto at16 = [&](size_t offset) { return numberAt<uint16_t>(records, *at + offset); };
  const auto at32 = [&](size_t offset) { return numberAt<uint32_t>(records, *at + offset); };
  if (!contains(records, *at, kCentralHeaderSize) || at32(0) != kCentralHeader) {
    return "is not there";
  }
  const size_t nameLength = at16(28);
  const size_t extraLength = at16(30);
  const size_t commentLength = at16(32);
  const size_t texts = *at + kCentralHeaderSize;
  if (!contains(records, texts, nameLength + extraLength + commentLength)) return "is cut short";
  const Bytes extra = records.subspan(texts + nameLength, extraLength);
  entry->madeBy = at16(4);
  entry->flags = at16(8);
  entry->method = at16(10);
  entry->dosTime = at16(12);
  entry->dosDate = at16(14);
  entry->crc = at32(16);
  entry->compressedSize = at32(20);
  entry->size = at32(24);
  entry->attributes = at32(38);
  entry->headerOffset = at32(42);
  entry->name = asText(records.subspan(texts, nameLength));
  entry->storedNameLength = static_cast<uint16_t>(nameLength);
  entry->extra = asText(extra);
  entry->comment = asText(records.subspan(texts + nameLength + extraLength, commentLength));
  if (!applyZip64(extra, entry)) return "has broken Zip64 fields";
  if (entry->name.empty() || entry->name.find('\0') != std::string::npos) {
    return "has no proper name";
  }
  if (!isPlausible(*entry)) return "claims a size that its packed bytes cannot have";
  *at = texts + nameLength + extraLength + commentLength;
  return nullptr;
}

bool ArchiveReader::readDirectory(const Directory& directory, ErrorText* error) {
  const Bytes records = bytes_.subspan(directory.offset, directory.size);
  if (directory.count > records.size() / kCentralHeaderSize) {
    return fail(error,
                fmt::format("the central directory has no room for {} entries", directory.count));
  }
  entries_.clear();
  entries_.reserve(directory.count);
  size_t at = 0;
  for (uint64_t i = 0; i < directory.count; ++i) {
    Entry entry;
    if (const char* damage = readRecord(records, &at, &entry)) {
      return fail(error, fmt::format("entry {} of the central directory {}", i + 1, damage));
    }
    entries_.push_back(std::move(entry));
  }
  if (at != records.size()) return fail(error, "the central directory is longer than its entries");
  return true;
}

bool ArchiveReader::checkLocalHeaders(const Directory& directory, ErrorText* error) {
  const Bytes room = bytes_.first(directory.offset);
  std::vector<std::pair<uint64_t, uint64_t>> extents;
  extents.reserve(entries_.size());
  for (Entry& entry : entries_) {
    const auto damaged = [&](const char* what) {
      return fail(error, fmt::format("{}: {}", entry.name, what));
    };
    if (!contains(room, entry.headerOffset, kLocalHeaderSize) ||
        numberAt<uint32_t>(room, entry.headerOffset) != kLocalHeader) {
      return damaged("bad zipfile offset (local header sig)");
    }
    const size_t at = entry.headerOffset;
    const size_t nameLength = numberAt<uint16_t>(room, at + 26);
    const size_t extraLength = numberAt<uint16_t>(room, at + 28);
    if (!contains(room, at + kLocalHeaderSize, nameLength + extraLength)) {
      return damaged("the local header is cut short");
    }
    // A reader that goes by the local headers must see the same archive.
    if (nameLength != entry.name.size() ||
        std::memcmp(&room[at + kLocalHeaderSize], entry.name.data(), nameLength) != 0 ||
        numberAt<uint16_t>(room, at + 8) != entry.method) {
      return damaged("the local header differs from the central directory");
    }
    entry.dataOffset = at + kLocalHeaderSize + nameLength + extraLength;
    if (!contains(room, entry.dataOffset, entry.compressedSize)) {
      return damaged("the packed bytes lie outside the archive");
    }
    extents.emplace_back(at, entry.dataOffset + entry.compressedSize);
  }
  std::sort(extents.begin(), extents.end());
  for (size_t i = 1; i < extents.size(); ++i) {
    if (extents[i].first < extents[i - 1].second) {
      return fail(error, "entries overlap (possible zip bomb)");
    }
  }
  return true;
}

void ArchiveReader::decodeNames() {
  for (Entry& entry : entries_) {
    const bool isPlain = (entry.flags & kFlagUtf8) != 0 || entry.isFromUnix();
    if (!isPlain) entry.name = fromCodePage437(entry.name);
  }
}

void ArchiveReader::replaceBackslashes() {
  for (Entry& entry : entries_) {
    const bool isDos = entry.madeBy >> 8 == 0;
    if (!isDos || entry.name.find('\\') == std::string::npos) continue;
    if (entry.name.find('/') != std::string::npos) continue;
    std::ranges::replace(entry.name, '\\', '/');
    hadBackslashes_ = true;
  }
}

}  // namespace tovrek::archive
