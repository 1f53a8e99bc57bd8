#include "programs/zip/packing.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

#include "archive/ArchiveWriter.h"
#include "host/MappedFile.h"

namespace tovrek::zip {
namespace {

using archive::Buffer;
using archive::Bytes;
using archive::Entry;

bool isPlainAscii(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return (c & 0x80) == 0; });
}

uint16_t levelFlags(int level) {
  constexpr uint16_t kBest = 1 << 1;
  constexpr uint16_t kFast = 2 << 1;
  constexpr uint16_t kFastest = 3 << 1;
  if (level == 1) return kFastest;
  if (level == 2) return kFast;
  return level >= 8 ? kBest : 0;
}

Entry describe(const SourceItem& item, bool withExtra) {
  constexpr uint16_t kUnixVersion30 = 3 << 8 | 30;
  constexpr uint32_t kDosFolder = 0x10;
  constexpr uint32_t kDosReadOnly = 1;
  Entry entry;
  entry.name = item.name;
  entry.madeBy = kUnixVersion30;
  if (!isPlainAscii(item.name)) entry.flags = archive::kFlagUtf8;
  archive::setDosTime(&entry, item.info.st_mtime);
  if (withExtra) entry.extra = archive::timeExtra(item.info.st_mtime);
  entry.size = S_ISDIR(item.info.st_mode) ? 0 : static_cast<uint64_t>(item.info.st_size);
  entry.attributes = static_cast<uint32_t>(item.info.st_mode) << 16;
  if (S_ISDIR(item.info.st_mode)) entry.attributes |= kDosFolder;
  if ((item.info.st_mode & S_IWUSR) == 0) entry.attributes |= kDosReadOnly;
  return entry;
}

Buffer copyOf(Bytes bytes) {
  Buffer copy(bytes.size());
  if (!copy.bytes().empty()) std::memcpy(copy.bytes().data(), bytes.data(), bytes.size());
  return copy;
}

void store(Bytes contents, PackedItem* result) {
  result->packed = copyOf(contents);
  result->entry.size = result->entry.compressedSize = contents.size();
  result->entry.crc = archive::crcOf(contents);
}

enum class Reading { kDone, kFailed, kGrown };

// The whole of a small file, unless it is larger than it was when it was opened. The position in
// the file stays.
Reading readWhole(int fd, std::span<std::byte> room, Bytes* contents) {
  for (size_t filled = 0; filled < room.size();) {
    const ssize_t count =
        ::pread(fd, &room[filled], room.size() - filled, static_cast<off_t>(filled));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return Reading::kFailed;
    filled += static_cast<size_t>(count);
    if (count != 0) continue;
    *contents = room.first(filled);
    return Reading::kDone;
  }
  return Reading::kGrown;
}

// The deflated form, taken from the source or made; empty when storing is as good.
Buffer deflated(Bytes contents, const archive::PackedSource* source, Packer* packer, uint32_t* crc,
                uint16_t* flags) {
  using Known = archive::PackedSource::Known;
  constexpr int kUsualLevel = 6;
  Buffer packed;
  if (packer->level == 0 || contents.size() < 2) return packed;
  if (source != nullptr && packer->level <= kUsualLevel && source->mayHave(contents.size())) {
    *crc = archive::crcOf(contents);
    const Known known =
        source->lookUp(contents, *crc, &packer->inflater, &packer->unpacked, &packed);
    constexpr size_t kMostKept = 4 << 20;
    if (packer->unpacked.bytes().size() > kMostKept) packer->unpacked = Buffer();
    if (known != Known::kNothing) return packed;
  }
  if (!archive::looksCompressible(contents)) return packed;
  packed = Buffer(contents.size() - 1);
  if (packed.bytes().empty()) return packed;
  packed.shrinkTo(packer->deflater.deflate(contents, packed.bytes()));
  *crc = archive::crcOf(contents);
  *flags = levelFlags(packer->level);
  return packed;
}

void packContents(Bytes contents, UniqueFd file, const archive::PackedSource* source,
                  Packer* packer, PackedItem* result) {
  Entry& entry = result->entry;
  uint16_t flags = 0;
  Buffer packed = deflated(contents, source, packer, &entry.crc, &flags);
  if (!packed.bytes().empty()) {
    entry.method = archive::kDeflated;
    entry.flags |= flags;
    entry.size = contents.size();
    entry.compressedSize = packed.bytes().size();
    result->packed = std::move(packed);
  } else if (file.valid()) {
    result->large = std::move(file);
  } else {
    store(contents, result);
  }
}

void packFile(const SourceItem& item, const archive::PackedSource* source, Packer* packer,
              PackedItem* result) {
  UniqueFd file(::open(item.path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct stat info {};
  if (!file.valid() || ::fstat(file.get(), &info) != 0) {
    result->fault = std::strerror(errno);
    return;
  }
  if (!S_ISREG(info.st_mode) || info.st_ino != item.info.st_ino ||
      info.st_dev != item.info.st_dev) {
    result->fault = "replaced while it was being packed";
    return;
  }
  if (static_cast<uint64_t>(info.st_size) <= kLargestRead) {
    Bytes contents;
    // With a byte more, to see the end.
    const auto room = packer->contents.atLeast(static_cast<size_t>(info.st_size) + 1);
    switch (readWhole(file.get(), room, &contents)) {
      case Reading::kDone:
        return packContents(contents, UniqueFd(), source, packer, result);
      case Reading::kFailed:
        result->fault = std::strerror(errno);
        return;
      case Reading::kGrown:
        break;
    }
  }
  MappedFile mapping;
  ErrorText error;
  if (!mapping.open(item.path, &error)) {
    result->fault = error.text();
    return;
  }
  packContents(mapping.bytes(), std::move(file), source, packer, result);
}

void packLink(const SourceItem& item, PackedItem* result) {
  std::string target(PATH_MAX, '\0');
  const ssize_t length = ::readlink(item.path.c_str(), target.data(), target.size());
  if (length < 0) {
    result->fault = std::strerror(errno);
    return;
  }
  target.resize(static_cast<size_t>(length));
  store(std::as_bytes(std::span(target.data(), target.size())), result);
}

}  // namespace

PackedItem packItem(const SourceItem& item, bool withExtra, const archive::PackedSource* source,
                    Packer* packer) {
  PackedItem result;
  result.entry = describe(item, withExtra);
  if (S_ISLNK(item.info.st_mode)) {
    packLink(item, &result);
  } else if (S_ISREG(item.info.st_mode)) {
    packFile(item, source, packer, &result);
  }
  return result;
}

}  // namespace tovrek::zip
