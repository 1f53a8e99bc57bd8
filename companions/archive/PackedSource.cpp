#include "companions/archive/PackedSource.h"

#include <algorithm>
#include <cstring>

namespace tovrek::archive {
namespace {

bool isReadable(const Entry& entry) {
  return !entry.isEncrypted() && (entry.method == kDeflated || entry.method == kStored);
}

}  // namespace

bool PackedSource::open(const std::string& path) {
  bySize_.clear();
  if (reader_.open(path, nullptr) != ArchiveReader::Opened::kDone || !isPackedWell()) return false;
  for (const Entry& entry : reader_.entries()) {
    if (isReadable(entry)) bySize_.emplace(entry.size, &entry);
  }
  return !bySize_.empty();
}

// Packs some middling entries again: what was made by a hasty program would make packages grow.
bool PackedSource::isPackedWell() const {
  constexpr uint64_t kSmallest = 2048;
  constexpr uint64_t kLargest = 65536;
  constexpr size_t kSamples = 8;
  constexpr int kUsualLevel = 6;
  std::vector<const Entry*> suitable;
  for (const Entry& entry : reader_.entries()) {
    if (isReadable(entry) && entry.size >= kSmallest && entry.size <= kLargest)
      suitable.push_back(&entry);
  }
  const size_t step = std::max<size_t>(1, suitable.size() / kSamples);
  const Buffer contents(kLargest);
  const Buffer packed(kLargest);
  Inflater inflater;
  Deflater deflater(kUsualLevel);
  uint64_t theirs = 0;
  uint64_t ours = 0;
  for (size_t i = 0; i < suitable.size(); i += step) {
    const Entry& sample = *suitable[i];
    Bytes plain = reader_.packed(sample);
    if (sample.method == kDeflated) {
      const auto target = contents.bytes().first(sample.size);
      if (!inflater.inflate(plain, target)) return false;
      plain = target;
    }
    const size_t size = deflater.deflate(plain, packed.bytes().first(plain.size() - 1));
    ours += size == 0 ? plain.size() : size;
    theirs += sample.compressedSize;
  }
  return theirs <= ours + ours / 100;
}

PackedSource::Known PackedSource::lookUp(Bytes contents, uint32_t crc, Inflater* inflater,
                                         Buffer* packed) const {
  const auto [first, last] = bySize_.equal_range(contents.size());
  const Entry* found = nullptr;  // the first in the archive, however the table is ordered
  for (auto at = first; at != last; ++at) {
    const Entry* entry = at->second;
    if (entry->crc == crc && (found == nullptr || entry < found)) found = entry;
  }
  if (found == nullptr) return Known::kNothing;
  if (!isWorthPacking(found->size, found->compressedSize)) return Known::kNotWorthPacking;

  const Bytes theirs = reader_.packed(*found);
  Buffer copy(theirs.size());
  const Buffer unpacked(contents.size());
  if (copy.bytes().empty() || unpacked.bytes().empty()) return Known::kNothing;
  // Compared is what is used: the archive may change while it is read.
  std::memcpy(copy.bytes().data(), theirs.data(), theirs.size());
  const bool same = inflater->inflate(copy.bytes(), unpacked.bytes()) &&
                    std::memcmp(unpacked.bytes().data(), contents.data(), contents.size()) == 0;
  if (!same) return Known::kNothing;
  *packed = std::move(copy);
  return Known::kPacked;
}

}  // namespace tovrek::archive
