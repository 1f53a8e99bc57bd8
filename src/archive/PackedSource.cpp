#include "archive/PackedSource.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>

namespace tovrek::archive {
namespace {

bool isReadable(const Entry& entry) {
  return !entry.isEncrypted() && (entry.method == kDeflated || entry.method == kStored);
}

// The size that zlib packs the bytes to at its default level.
uint64_t usualSize(Bytes contents) {
  constexpr int kRawDeflate = -MAX_WBITS;
  constexpr int kMemoryLevel = 8;
  z_stream stream{};
  if (::deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, kRawDeflate, kMemoryLevel,
                     Z_DEFAULT_STRATEGY) != Z_OK) {
    return 0;
  }
  std::string packed(::deflateBound(&stream, contents.size()), '\0');
  // zlib does not write through its input pointer.
  stream.next_in = const_cast<Bytef*>(reinterpret_cast<const Bytef*>(contents.data()));
  stream.avail_in = static_cast<uInt>(contents.size());
  stream.next_out = reinterpret_cast<Bytef*>(packed.data());
  stream.avail_out = static_cast<uInt>(packed.size());
  ::deflate(&stream, Z_FINISH);
  const uint64_t size = stream.total_out;
  ::deflateEnd(&stream);
  return size;
}

}  // namespace

bool PackedSource::open(const std::string& path) {
  packedSize_ = 0;
  sizes_.clear();
  entries_.clear();
  if (reader_.open(path, nullptr) != ArchiveReader::Opened::kDone || !isPackedWell()) return false;
  for (const Entry& entry : reader_.entries()) {
    packedSize_ += entry.compressedSize;
    if (!isReadable(entry)) continue;
    sizes_.insert(entry.size);
    entries_.try_emplace({entry.size, entry.crc}, &entry);
  }
  return !entries_.empty();
}

// Packs some middling entries again, with the library that most archives are made with: what was
// made in haste would make packages grow.
bool PackedSource::isPackedWell() const {
  constexpr uint64_t kSmallest = 2048;
  constexpr uint64_t kLargest = 24576;
  constexpr size_t kSamples = 8;
  std::vector<const Entry*> suitable;
  for (const Entry& entry : reader_.entries()) {
    if (isReadable(entry) && entry.size >= kSmallest && entry.size <= kLargest)
      suitable.push_back(&entry);
  }
  const size_t step = std::max<size_t>(1, suitable.size() / kSamples);
  const Buffer contents(kLargest);
  Inflater inflater;
  uint64_t theirs = 0;
  uint64_t usual = 0;
  for (size_t i = 0; i < suitable.size(); i += step) {
    const Entry& sample = *suitable[i];
    Bytes plain = reader_.packed(sample);
    if (sample.method == kDeflated) {
      const auto target = contents.bytes().first(sample.size);
      if (!inflater.inflate(plain, target)) return false;
      plain = target;
    }
    usual += std::min<uint64_t>(usualSize(plain), plain.size());
    theirs += sample.compressedSize;
  }
  return theirs <= usual + usual / 100;
}

const Entry* PackedSource::find(uint64_t size, uint32_t crc) const {
  const auto at = entries_.find({size, crc});
  return at == entries_.end() ? nullptr : at->second;
}

PackedSource::Known PackedSource::lookUp(Bytes contents, uint32_t crc, Inflater* inflater,
                                         Buffer* room, Buffer* packed) const {
  const Entry* found = find(contents.size(), crc);
  if (found == nullptr) return Known::kNothing;
  if (!isWorthPacking(found->size, found->compressedSize)) return Known::kNotWorthPacking;

  const Bytes theirs = reader_.packed(*found);
  Buffer copy(theirs.size());
  const auto unpacked = room->atLeast(contents.size());
  if (copy.bytes().empty() || unpacked.size() < contents.size()) return Known::kNothing;
  // Compared is what is used: the archive may change while it is read.
  std::memcpy(copy.bytes().data(), theirs.data(), theirs.size());
  const bool same = inflater->inflate(copy.bytes(), unpacked) &&
                    std::memcmp(unpacked.data(), contents.data(), contents.size()) == 0;
  if (!same) return Known::kNothing;
  *packed = std::move(copy);
  return Known::kPacked;
}

}  // namespace tovrek::archive
