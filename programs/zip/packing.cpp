#include "programs/zip/packing.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>

#include "archive/ArchiveWriter.h"
#include "host/MappedFile.h"

namespace tovrek::zip {
namespace {

using archive::Buffer;
using archive::Bytes;
using archive::Entry;

constexpr const char* kReplaced = "replaced while it was being packed";

bool isPlainAscii(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return (c & 0x80) == 0; });
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

// The deflated form, taken from the source or made; empty when storing is as good.
Buffer deflated(Bytes contents, const archive::PackedSource* source, Packer* packer, uint32_t* crc,
                uint16_t* flags) {
  using Known = archive::PackedSource::Known;
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

// `file` is none for contents that are in memory.
void packContents(Bytes contents, InputFile file, const archive::PackedSource* source,
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
  } else if (file.isOpen()) {
    result->large = std::move(file);
  } else {
    store(contents, result);
  }
}

void packFile(const SourceItem& item, const LargeFile& plan, const archive::PackedSource* source,
              Packer* packer, PackedItem* result) {
  InputFile file;
  ErrorText error;
  const auto failed = [&] { result->fault = error.text(); };
  if (!openItemFile(item, &file, &error)) return failed();
  const FileStatus& status = file.status();
  if (plan.way == LargeFile::Way::kStore) {
    result->large = std::move(file);
    return;
  }
  if (status.size <= kLargestRead) {
    // With a byte more, to see whether the file has grown.
    const auto room = packer->contents.atLeast(static_cast<size_t>(status.size) + 1);
    const auto size = file.readAt(0, room, &error);
    if (!size) return failed();
    if (*size < room.size()) {
      return packContents(room.first(*size), InputFile(), source, packer, result);
    }
  }
  MappedFile mapping;
  if (!mapping.open(item.path, &error)) return failed();
  packContents(mapping.bytes(), std::move(file), source, packer, result);
}

void packLink(const SourceItem& item, PackedItem* result) {
  ErrorText error;
  if (const auto target = linkTarget(item.path, &error)) {
    store(archive::asBytes(*target), result);
  } else {
    result->fault = error.text();
  }
}

}  // namespace

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
  constexpr uint32_t kOwnerMayWrite = 0200;
  Entry entry;
  entry.name = item.name;
  entry.madeBy = kUnixVersion30;
  if (!isPlainAscii(item.name)) entry.flags = archive::kFlagUtf8;
  const bool isFolder = item.status.kind == ItemKind::kDirectory;
  archive::setDosTime(&entry, item.status.modified);
  if (withExtra) entry.extra = archive::timeExtra(item.status.modified);
  entry.size = isFolder ? 0 : item.status.size;
  entry.attributes = item.status.mode << 16;
  if (isFolder) entry.attributes |= kDosFolder;
  if ((item.status.mode & kOwnerMayWrite) == 0) entry.attributes |= kDosReadOnly;
  return entry;
}

bool openItemFile(const SourceItem& item, InputFile* file, ErrorText* error) {
  if (!file->open(item.path, error)) return false;
  const FileStatus& status = file->status();
  if (status.kind == ItemKind::kFile && status.identity == item.status.identity) return true;
  return fail(error, kReplaced);
}

PackedItem packItem(const SourceItem& item, const LargeFile& plan, bool withExtra,
                    const archive::PackedSource* source, Packer* packer) {
  PackedItem result;
  result.entry = describe(item, withExtra);
  if (item.status.kind == ItemKind::kLink) {
    packLink(item, &result);
  } else if (item.status.kind == ItemKind::kFile && item.standsFor == nullptr) {
    packFile(item, plan, source, packer, &result);
  }
  return result;
}

PackedItem packPiece(const SourceItem& item, archive::PieceMethod method, uint64_t piece,
                     Packer* packer) {
  PackedItem result;
  InputFile file;
  ErrorText error;
  const uint64_t size = item.status.size;
  const uint64_t start = piece * archive::kPieceSize;
  const size_t before = std::min<uint64_t>(start, archive::kReach);
  const size_t length = std::min<uint64_t>(archive::kPieceSize, size - start);
  const bool isLast = start + length == size;
  // In the last piece with a byte more, to see whether the file has grown.
  const auto room = packer->contents.atLeast(before + length + 1).first(before + length + isLast);
  std::optional<size_t> got;
  if (openItemFile(item, &file, &error)) got = file.readAt(start - before, room, &error);
  if (got && *got != before + length) fail(&error, kReplaced);
  if (error.isSet()) {
    result.fault = error.text();
    return result;
  }
  const Bytes contents = room.subspan(before, length);
  result.entry.size = length;
  result.entry.crc = archive::crcOf(contents);
  result.packed = packer->pieces.deflate(method, room.first(before), contents, isLast);
  if (result.packed.bytes().empty()) result.fault = std::strerror(ENOMEM);
  return result;
}

}  // namespace tovrek::zip
